"""The figures over a line with a long way: one range at a time and several, and whole transfers beside
other programs."""

import contextlib
import functools
import os
import statistics

from blobs import Blobs
from harness import MIB, column
from objects import OBJECT, Store
from servers import DiscardServer, Line, Nginx

DELAY_MS = 25
RATE = 125_000_000  # bytes a second: 1 Gbit/s
WINDOW = MIB
SIZE = 256 * MIB
SIZE_WINDOW = 64 * MIB  # with the narrow window
SIZE_RANGES = 64 * MIB
AT_ONCE = (1, 4, 8)
# Ranges of 1 MiB. The line holds 6 MiB; with a window of 1 MiB the end of each waits for a round trip more.
PARALLEL = 12
CHUNK = MIB


def line_to(bench, server, rate=RATE, window=0):
    return Line(bench.program("delay_line"), server.port, DELAY_MS, rate, window)


def measure_ranges(bench, table):
    """64 MiB in ranges of 1 MiB, over a line that only takes long."""
    blobs = Blobs(bench, bench.size(SIZE_RANGES, 4 * MIB), 1)
    with Nginx(bench.files, bench.directory) as nginx, line_to(bench, nginx, rate=0) as line:
        for parallel in AT_ONCE:
            blobs.timed(line.url, parallel)
            blobs.compare_bytes(f"{parallel} at once")
        used = bench.interleave({n: functools.partial(blobs.timed, line.url, n) for n in AT_ONCE})
    alone = column(used[1], "seconds")
    figure = f"64 MiB over {DELAY_MS} ms each way"
    table.add(f"{figure}, one range at a time", f"{statistics.median(alone):.4g} s")
    for parallel in AT_ONCE[1:]:
        table.compare(f"{figure}, up to {parallel} ranges beside one", column(used[parallel], "seconds"),
                      alone, "s", at_most=0.5)


def measure_downloads(bench, table, figure, size, window, most_curl, most_aria2):
    """A blob and an object beside curl and aria2."""
    blobs = Blobs(bench, size, 1)
    # The store has the file that the blobs are copies of.
    root = os.path.join(bench.directory, "line-store")
    os.makedirs(os.path.dirname(os.path.join(root, OBJECT)), exist_ok=True)
    path = os.path.join(root, OBJECT)
    for link in (path, os.path.join(root, blobs.object)):
        with contextlib.suppress(FileNotFoundError):
            os.remove(link)
        os.link(bench.file(size), link)
    with Nginx(root, bench.directory) as nginx, line_to(bench, nginx, window=window) as line:
        store = Store(bench, size, line.authority, None)
        runs = {
            "blob": functools.partial(blobs.ours, "managed", line.url, PARALLEL),
            "object": store.our_download,
            "curl": functools.partial(blobs.curl, line.url),
            "aria2c": bench.installed("aria2c", functools.partial(blobs.aria2, line.url)),
        }
        for name, run in runs.items():
            if run:
                run()
                store.check_bytes(name) if name == "object" else blobs.compare_bytes(name)
        used = bench.interleave(runs)
    for ours in ("blob", "object"):
        for other, name, most in (("curl", "curl", most_curl), ("aria2c", "aria2c -x5", most_aria2)):
            table.compare(f"{ours} of {figure}, beside {name}", column(used[ours], "wall"),
                          column(used[other], "wall"), "s", at_most=most)
        table.add_peak(f"{ours} of {figure}", used[ours], 32)


def measure_upload(bench, table, figure, size):
    """An upload in chunks, each sent when the one before it is answered, beside one PUT of curl and
    beside the least that such an exchange can take."""
    with DiscardServer(bench.program("discard_server"), "http://127.0.0.1") as server, \
            line_to(bench, server) as line:
        def check(used, expected):
            received = server.received()["bytes"]
            if received != expected:
                raise RuntimeError(f"the server received {received} bytes")
            return used

        def ours():
            return check(bench.run(bench.program("varo_transfer"), "upload",
                                   f"{line.url}/services/sink", bench.file(size), str(CHUNK)), size)

        def curl():
            return check(bench.run("curl", "-s", "-o", os.devnull, "-H", "Expect:", "-T",
                                   bench.file(size), f"{line.url}/services/bytes"), size)

        used = bench.interleave({"ours": ours, "curl": curl})
    # The connection, the record, the chunks and the commit take a round trip each.
    floor = (size // CHUNK + 3) * 2 * DELAY_MS / 1000 + size / RATE
    seconds = column(used["ours"], "wall")
    table.compare(f"{figure}, beside curl -T", seconds, column(used["curl"], "wall"), "s")
    table.compare(f"{figure}, beside the least for one chunk after the other", seconds,
                  [floor] * len(seconds), "s", at_most=1.05)


def measure_line(bench, table):
    """Over 50 ms there and back at 1 Gbit/s, which several connections share."""
    line = f"over {2 * DELAY_MS} ms, 1 Gbit/s"
    measure_downloads(bench, table, f"256 MiB {line}", bench.size(SIZE, 4 * MIB), 0, 1.05, 0.7)
    measure_downloads(bench, table, f"64 MiB {line}, 1 MiB a connection",
                      bench.size(SIZE_WINDOW, 4 * MIB), WINDOW, 0.5, 0.9)
    measure_upload(bench, table, f"upload of 256 MiB {line}, chunks of 1 MiB",
                   bench.size(SIZE, 4 * MIB))
