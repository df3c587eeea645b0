"""The figure of ranges: one object over a line with a long way, one range at a time and several."""

import contextlib
import filecmp
import functools
import json
import os
import statistics
import subprocess

from harness import MIB, column
from servers import Nginx

SIZE = 64 * MIB
RANGE = MIB
DELAY_MS = 25
AT_ONCE = (1, 4, 8)


def measure_ranges(bench, table):
    """64 MiB in ranges of 1 MiB through a relay that delays every byte, on both ways."""
    size = bench.size(SIZE, 4 * MIB)
    name = os.path.basename(bench.file(size))
    directory = os.path.join(bench.home, "Documents", "blobs")
    os.makedirs(directory, exist_ok=True)
    stored = os.path.join(directory, "1")
    with contextlib.ExitStack() as stack:
        nginx = Nginx(bench.files, bench.directory)
        stack.callback(nginx.stop)

        def fetch(parallel):
            with contextlib.suppress(FileNotFoundError):
                os.remove(stored)
            done = subprocess.run([bench.program("varo_ranges"), str(nginx.port), name, str(RANGE),
                                   str(parallel), str(DELAY_MS), bench.home],
                                  stdout=subprocess.PIPE, check=True, text=True)
            if not filecmp.cmp(bench.file(size), stored, shallow=False):
                raise RuntimeError(f"{stored} has other bytes")
            return json.loads(done.stdout)

        used = bench.interleave({n: functools.partial(fetch, n) for n in AT_ONCE})
    alone = column(used[1], "seconds")
    figure = f"64 MiB over {DELAY_MS} ms each way"
    table.add(f"{figure}, one range at a time", f"{statistics.median(alone):.4g} s")
    for parallel in AT_ONCE[1:]:
        table.compare(f"{figure}, up to {parallel} ranges beside one", column(used[parallel], "seconds"),
                      alone, "s", at_most=0.5)
