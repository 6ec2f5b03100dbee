"""What bench.h is to programs, for peers that are Python packages.

A peer_WORK.py beside this one names who does the work, and how; it takes the words of the program bench_WORK and prints
what that prints. A peer that makes something of its own has an empty result. The peers are run by the Python of the
distribution, which finds its packages.
"""
import importlib.util
import json
import resource
import sys
import time


class Run:
    """One run: its words, and what it took."""

    def __init__(self, words):
        self.is_short = "--short" in words
        self.words = [word for word in words if word != "--short"]
        self.seconds = self.cpu_seconds = 0.0
        self.result = ""

    def measure(self, work, times=1):
        """Does the work once, where the others do it `times` as often, and tells what that would take."""
        cpu_start, start = time.process_time(), time.perf_counter()
        made = work()
        self.seconds += (time.perf_counter() - start) * times
        self.cpu_seconds += (time.process_time() - cpu_start) * times
        return made


def peer(package, name, work):
    """Names the peer where its package is there; with its name, runs it."""
    if not importlib.util.find_spec(package):
        sys.exit(0 if len(sys.argv) < 2 else f"{package} is not there")
    if len(sys.argv) < 2:
        print(name)
        return
    run = Run(sys.argv[2:])
    work(run)
    print(json.dumps({"seconds": run.seconds, "cpu_seconds": run.cpu_seconds,
                      "peak_kb": resource.getrusage(resource.RUSAGE_SELF).ru_maxrss, "result": run.result}))
