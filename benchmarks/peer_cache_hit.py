#!/usr/bin/python3
"""fsspec finds files that it keeps copies of."""
import pathlib
import tempfile

from peer import peer

NAMES = 64
ROUNDS = 40
ROUNDS_OF_THE_OTHERS = 4_000


def work(run):
    import fsspec

    rounds = 1 if run.is_short else ROUNDS
    times = 1 if run.is_short else ROUNDS_OF_THE_OTHERS // ROUNDS
    with tempfile.TemporaryDirectory() as folder:
        options = {"filecache": {"cache_storage": str(pathlib.Path(folder, "copies")), "expiry_time": 2_000_000}}
        names = []
        for i in range(NAMES):
            path = pathlib.Path(folder, f"customers_{i}.job")
            path.write_text("<ProcessJob/>\n", encoding="utf-8")
            names.append(f"filecache::{path.as_uri()}")
            fsspec.open_local(names[-1], **options)
        run.measure(lambda: [fsspec.open_local(name, **options) for _ in range(rounds) for name in names], times)


peer("fsspec", "fsspec", work)
