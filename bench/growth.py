"""The figure of growth: uploads that all start at once, ever more of them, under two limits of
descriptors."""

import contextlib
import functools
import json
import os
import resource
import statistics
import subprocess
import time

from harness import MIB, column
from servers import DiscardServer

SIZE = 4 * 1024
CHUNK = MIB
COUNTS = (10, 100, 1_000, 10_000)
DESCRIPTORS = (256, 1024)
ROUNDS = 3  # nothing is divided by anything else
LIMIT = 120  # seconds after which uploads that have not ended never will
EACH = 4  # KiB
THREADS = 10


def expected(files, size):
    """What the server counts of complete uploads."""
    chunks = -(-size // CHUNK)
    return {"creations": files, "chunks": files * chunks, "bytes": files * size, "commits": files}


def child_of(process):
    """The process that `run_measured` has started; None before and after."""
    with contextlib.suppress(FileNotFoundError, ProcessLookupError):
        with open(f"/proc/{process.pid}/task/{process.pid}/children", encoding="ascii") as children:
            return next(iter(children.read().split()), None)
    return None


def threads_and_descriptors(pid):
    with open(f"/proc/{pid}/status", encoding="ascii") as status:
        threads = next(int(line.split()[1]) for line in status if line.startswith("Threads:"))
    return threads, len(os.listdir(f"/proc/{pid}/fd"))


def upload(bench, server, count, descriptors):
    """What `count` uploads use; "ended" of them well."""
    process = subprocess.Popen(
        [bench.program("run_measured"), bench.program("varo_transfer"), "upload-many",
         server.service("sink"), bench.file(SIZE), str(CHUNK), str(count)],
        stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, text=True,
        preexec_fn=lambda: resource.setrlimit(resource.RLIMIT_NOFILE, (descriptors, descriptors)))
    threads, opened = 0, 0
    end = time.monotonic() + LIMIT
    while process.poll() is None:
        # It is gone from one moment to the next, and a process that ends has nothing to tell.
        with contextlib.suppress(OSError, StopIteration, ValueError):
            if pid := child_of(process):
                seen = threads_and_descriptors(pid)
                threads, opened = max(threads, seen[0]), max(opened, seen[1])
                if time.monotonic() > end:
                    os.kill(int(pid), 9)
        time.sleep(0.001)
    used = json.loads(process.stdout.read())
    process.stdout.close()
    received = server.received()
    is_whole = used["exit"] == 0 and received == expected(count, SIZE)
    return {**used, "threads": threads, "descriptors": opened,
            "ended": count if is_whole else min(received["commits"], count - 1)}


def measure_growth(bench, table):
    """Uploads of 4 KiB that start at once: how many end well, and what they use."""
    # The server takes as many connections as there may be.
    hard = resource.getrlimit(resource.RLIMIT_NOFILE)[1]
    resource.setrlimit(resource.RLIMIT_NOFILE, (hard, hard))
    counts = [bench.size(count, min(count, 100)) for count in COUNTS]
    with DiscardServer(bench.program("discard_server"), "http://127.0.0.1") as server:
        runs = {(count, limit): functools.partial(upload, bench, server, count, limit)
                for limit in DESCRIPTORS for count in [1, *counts]}
        used = bench.interleave(runs, rounds=ROUNDS)
    for limit in DESCRIPTORS:
        alone = statistics.median(column(used[1, limit], "peak_kib"))
        for count in dict.fromkeys(counts):
            add(table, f"{count:,} uploads of 4 KiB at once, {limit:,} descriptors", count, alone,
                used[count, limit])


def add(table, figure, count, alone, used):
    fewest = min(column(used, "ended"))
    table.add(f"{figure}, ended well", f"{fewest:,}", goal="all", met=fewest == count)
    table.add(f"{figure}, time", f"{statistics.median(column(used, 'wall')):.4g} s")
    threads = max(column(used, "threads"))
    table.add(f"{figure}, threads with main", str(threads), goal=f"at most {THREADS}",
              met=threads <= THREADS)
    table.add(f"{figure}, descriptors", str(max(column(used, "descriptors"))))
    each = (statistics.median(column(used, "peak_kib")) - alone) / count
    # Fewer than 1,000 tell more of what they share. What has failed needs no memory.
    goal = (f"at most {EACH} KiB", each <= EACH and fewest == count) if count >= 1_000 else ("", None)
    table.add(f"{figure}, memory each", f"{each:.1f} KiB", "", "", *goal)
