#!/usr/bin/python3
"""fsspec takes copies of files that it has not seen before."""
import pathlib
import tempfile

from peer import peer

NAMES = 64
ROUNDS = 5
ROUNDS_OF_THE_OTHERS = 100


def work(run):
    import fsspec

    rounds = 1 if run.is_short else ROUNDS
    times = 1 if run.is_short else ROUNDS_OF_THE_OTHERS // ROUNDS
    for _ in range(rounds):
        with tempfile.TemporaryDirectory() as folder:
            options = {"filecache": {"cache_storage": str(pathlib.Path(folder, "copies"))}}
            names = []
            for i in range(NAMES):
                path = pathlib.Path(folder, f"customers_{i}.job")
                path.write_text("<ProcessJob/>\n", encoding="utf-8")
                names.append(f"filecache::{path.as_uri()}")
            run.measure(lambda: [fsspec.open_local(name, **options) for name in names], times)


peer("fsspec", "fsspec", work)
