#!/usr/bin/env python3
"""Measures the library beside curl, beside a small libcurl program and beside bare hand-overs and
parses, and prints one table. docs/benchmarks.md says what each figure answers.

A comparison runs its programs in turn, a process each, for an odd number of rounds, and takes the
median of the rounds' ratios. Every transfer is checked: what the server received, how large the stored file is, and once
that its bytes are the same.
"""

import argparse
import contextlib
import filecmp
import functools
import json
import os
import platform
import shutil
import statistics
import subprocess
import sys
import tempfile

from blobs import measure_blob, measure_blobs, measure_many_blobs
from cancel import measure_cancel
from growth import CHUNK, expected, measure_growth
from harness import LARGE, MIB, Bench, Table, column
from line import measure_line, measure_ranges
from objects import measure_objects
from online import measure_queue, measure_sign
from rate import measure_rate
from servers import DiscardServer, Nginx

DOWNLOAD = 256 * MIB
SMALL = 64 * MIB
LIST_RECORDS = 100_000
SLEEPING = 1000


def add_peaks(table, figure, large, small):
    table.add_peak(figure, large, 32)
    mine, other = ([peak / 1024 for peak in column(runs, "peak_kib")] for runs in (large, small))
    table.compare(f"{figure} beside 64 MiB, peak memory", mine, other, "MiB", at_most=1.10)


def measure_download(bench, table):
    """One GET of 256 MiB from nginx, stored in a file that did not exist before."""
    size_large, size_small = bench.size(DOWNLOAD, 2 * MIB), bench.size(SMALL, MIB)
    with Nginx(bench.files, bench.directory) as nginx, \
            DiscardServer(bench.program("discard_server"), nginx.url) as server:
        def fetch(size, command):
            name = os.path.basename(bench.file(size))
            stored = os.path.join(bench.downloads, name)
            # Removed just before, so that each program writes to memory that was in use until now:
            # a virtual machine may take longer over memory that has been free for a while.
            with contextlib.suppress(FileNotFoundError):
                os.remove(stored)
            used = bench.run(*command(name, stored))
            if os.path.getsize(stored) != size:
                raise RuntimeError(f"{stored} has {os.path.getsize(stored)} bytes")
            return used

        def ours(name, _):
            service = server.service(name)
            return [bench.program("varo_transfer"), "download", service, name, bench.home]

        def curl(name, stored):
            return ["curl", "-s", "-o", stored, f"{nginx.url}/{name}"]

        def bare(name, stored):
            return [bench.program("bare_transfer"), "download", server.service(name), stored]

        for command in (ours, curl, bare):
            fetch(size_large, command)
            if not filecmp.cmp(bench.file(size_large),
                               os.path.join(bench.downloads, f"{size_large}.bin"), shallow=False):
                raise RuntimeError(f"{command.__name__} stored other bytes")
        used = bench.interleave({
            "ours": lambda: fetch(size_large, ours),
            "curl": lambda: fetch(size_large, curl),
            "bare": lambda: fetch(size_large, bare),
            "small": lambda: fetch(size_small, ours),
        })
    figure = "download of 256 MiB"
    table.compare_runs(f"{figure} beside curl", used["ours"], used["curl"], 0.75, 0.70)
    table.compare_runs(f"{figure} beside the bare program", used["ours"], used["bare"])
    add_peaks(table, figure, used["ours"], used["small"])


def measure_upload(bench, table):
    """1 GiB in chunks of 1 MiB to a server that discards."""
    size_large, size_small = bench.size(LARGE, 2 * MIB), bench.size(SMALL, MIB)
    with DiscardServer(bench.program("discard_server"), "http://127.0.0.1") as server:
        service = server.service("sink")

        def send(program, size):
            used = bench.run(bench.program(program), "upload", service, bench.file(size),
                             str(CHUNK))
            received = server.received()
            if received != expected(1, size):
                raise RuntimeError(f"the server received {received}")
            return used

        def curl():
            used = bench.run("curl", "-s", "-o", "/dev/null", "-H", "Expect:",
                             "-T", bench.file(size_large), f"{server.url}/services/bytes")
            if server.received()["bytes"] != size_large:
                raise RuntimeError("curl did not send everything")
            return used

        bench.file(size_large)
        used = bench.interleave({
            "ours": lambda: send("varo_transfer", size_large),
            "bare": lambda: send("bare_transfer", size_large),
            "curl": curl,
            "small": lambda: send("varo_transfer", size_small),
        })
    figure = "upload of 1 GiB"
    table.compare_runs(f"{figure} beside the bare program", used["ours"], used["bare"], 1.05, 1.25)
    table.compare_runs(f"{figure} beside one PUT of curl", used["ours"], used["curl"], 1.05)
    add_peaks(table, figure, used["ours"], used["small"])


def measure_engine(bench, table):
    """What tasks cost beside the hand-overs between threads that they cannot do without."""
    done = subprocess.run([bench.program("varo_task_engine_bench"), "--benchmark_format=json",
                           f"--benchmark_repetitions={bench.rounds}",
                           f"--benchmark_min_time={bench.size(0.2, 0.001)}",
                           "--benchmark_enable_random_interleaving=true"],
                          stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, check=True, text=True)
    nanoseconds = {}
    for run in json.loads(done.stdout)["benchmarks"]:
        if run["run_type"] == "iteration":
            name = run["run_name"].removesuffix("/real_time")
            # Where one run does many, its rate says how many.
            cost = 1e9 / run["items_per_second"] if "items_per_second" in run else run["real_time"]
            nanoseconds.setdefault(name, []).append(cost)
    for figure, ours, needed in (
            ("leaf task, start to listener, beside two hand-overs", "LeafFromStartToListener",
             "HandOversOfALeaf"),
            ("loop iteration beside one hand-over", "LoopIteration", "HandOversOfAnIteration")):
        for bare, pool in ((f"Bare{needed}", "our pool"), (f"BareAsio{needed}", "Boost.Asio's")):
            table.compare(f"{figure} ({pool})", [cost / 1000 for cost in nanoseconds[ours]],
                          [cost / 1000 for cost in nanoseconds[bare]], "us", at_most=3)


def measure_list(bench, table):
    """A list answer of 100,000 records, parsed for the first time in a fresh process."""
    path = os.path.join(bench.directory, "list.json")
    program = bench.program("varo_list_answer_bench")
    records = bench.size(LIST_RECORDS, 100)
    subprocess.run([program, "write", path, str(records)], check=True)
    size = os.path.getsize(path) / 1e6

    def rate(mode):
        done = subprocess.run([program, mode, path], stdout=subprocess.PIPE, check=True, text=True)
        return size / float(done.stdout)

    modes = {"ours": None, "boost": "Boost.JSON's tree", "nlohmann": "nlohmann's tree"}
    rates = bench.interleave({mode: functools.partial(rate, mode) for mode in modes})
    for mode, least in (("nlohmann", 3), ("boost", 1.2)):
        table.compare(f"list answer of {records:,} records ({size:.0f} MB) beside {modes[mode]}",
                      rates["ours"], rates[mode], "MB/s", at_least=least)


def measure_delete(bench, table):
    """List operations while many deletes wait for their next status request, and their end."""
    def run(count):
        done = subprocess.run([bench.program("varo_delete_bench"), str(count)],
                              stdout=subprocess.PIPE, check=True, text=True)
        return json.loads(done.stdout)

    sleeping = bench.size(SLEEPING, 10)
    runs = bench.interleave({"among": lambda: run(sleeping), "alone": lambda: run(0)})
    among, alone = runs["among"], runs["alone"]
    figure = f"a list among {sleeping:,} deletes in back-off"
    for name, key, most in (("median time", "list_us", 1.10), ("99th percentile", "list_p99_us", None)):
        table.compare(f"{figure} beside alone, {name}", column(among, key), column(alone, key), "us",
                      at_most=most)
    threads = max(column(among, "threads"))
    table.add(f"{figure}, threads with main", str(threads), goal="at most 10", met=threads <= 10)
    memory = statistics.median(column(among, "sleeping_kib")) / sleeping
    table.add("memory of a delete in back-off", f"{memory:.1f} KiB")
    slowest = max(column(among, "shutdown_ms"))
    table.add(f"shutdown with {sleeping:,} deletes in back-off, slowest", f"{slowest:.3g} ms",
              goal="at most 250 ms", met=slowest <= 250)


def measure_state(bench, table):
    """States of downloads written through SQLiteUtil beside bare SQLite on an open connection."""
    path = os.path.join(bench.directory, "states.db")

    def rate(side, mode, updates):
        done = subprocess.run([bench.program("varo_state_update_bench"), side, mode, path,
                               str(updates)], stdout=subprocess.PIPE, check=True, text=True)
        return float(done.stdout)

    for mode, figure, updates, least in (
            ("delete", "rollback journal", bench.size(100, 10), 0.9),
            ("wal-normal", "WAL, synchronous NORMAL", bench.size(20_000, 10), 0.95),
            ("wal", "WAL, synchronous FULL", bench.size(200, 10), None)):
        rates = bench.interleave({side: functools.partial(rate, side, mode, updates)
                                  for side in ("ours", "bare")})
        table.compare(f"state updates, {figure}", rates["ours"], rates["bare"], "/s",
                      at_least=least)


def measure_start(bench, table):
    """`varobinary list` beside curl, of one record: next to nothing but their start."""
    with DiscardServer(bench.program("discard_server"), "http://127.0.0.1") as server:
        service = server.service("file")
        repeat = f"for i in $(seq {bench.size(20, 1)}); do \"$@\" >/dev/null || exit; done"

        def run(*command):
            return bench.run("sh", "-c", repeat, "sh", *command)

        used = bench.interleave({
            "ours": lambda: run(bench.varobinary, "list", service),
            "curl": lambda: run("curl", "-sf", f"{service}/objects/File")})
    table.compare_runs("varobinary list of one record beside curl, 20 times", used["ours"],
                       used["curl"], most_time=1.2)


PARTS = {
    "start": measure_start,
    "engine": measure_engine,
    "list": measure_list,
    "delete": measure_delete,
    "state": measure_state,
    "sign": measure_sign,
    "queue": measure_queue,
    "growth": measure_growth,
    "upload": measure_upload,
    "download": measure_download,
    "blob": measure_blob,
    "blobs": measure_blobs,
    "many-blobs": measure_many_blobs,
    "objects": measure_objects,
    "ranges": measure_ranges,
    "line": measure_line,
    "cancel": measure_cancel,
    "rate": measure_rate,
}


def print_machine():
    def first_line(command):
        try:
            done = subprocess.run(command, stdout=subprocess.PIPE, text=True, check=True)
            return done.stdout.split("\n", maxsplit=1)[0]
        except (OSError, subprocess.CalledProcessError):
            return "unknown"

    model = "unknown"
    with open("/proc/cpuinfo", encoding="utf-8") as info:
        for line in info:
            if line.startswith("model name"):
                model = line.split(":", 1)[1].strip()
                break
    memory = os.sysconf("SC_PAGE_SIZE") * os.sysconf("SC_PHYS_PAGES") / (1 << 30)
    print(f"{model}, {len(os.sched_getaffinity(0))} cores, {memory:.0f} GiB, "
          f"Linux {platform.release()}, {first_line(['g++', '--version'])}, "
          f"{' '.join(first_line(['curl', '--version']).split()[:2])}, "
          f"load {os.getloadavg()[0]:.1f} at the start")


def main():
    parser = argparse.ArgumentParser(description="Measures the library and prints one table.")
    parser.add_argument("parts", nargs="*", metavar="PART",
                        help=f"of {', '.join(PARTS)}; default: all")
    parser.add_argument("--rounds", type=int, default=11,
                        help="rounds of each comparison (odd, at least 7; default: %(default)s)")
    parser.add_argument("--short", action="store_true",
                        help="everything once, with the smallest sizes, to see that it works; no figure "
                             "comes of it")
    parser.add_argument("--dir",
                        help="where the files of the transfers lie (default: $TMPDIR or /tmp)")
    parser.add_argument("--programs", default="build/release/bench", help=argparse.SUPPRESS)
    options = parser.parse_args()
    unknown = [part for part in options.parts if part not in PARTS]
    if unknown:
        parser.error(f"no such part: {', '.join(unknown)}")
    if options.rounds < 7 or options.rounds % 2 == 0:
        parser.error("the number of rounds must be odd and at least 7")

    table = Table(options.short)
    print_machine()
    print()
    with tempfile.TemporaryDirectory(prefix="varo-bench-", dir=options.dir) as directory:
        if not options.short and shutil.disk_usage(directory).free < 4 * LARGE:
            parser.error(f"{directory} needs 4 GiB of free space; choose another place with --dir")
        bench = Bench(os.path.abspath(options.programs), directory, options.rounds, options.short)
        for name in options.parts or PARTS:
            print(f"measuring {name} ...", flush=True)
            bench.empty_home()
            PARTS[name](bench, table)
    print()
    if options.short and not table.missed:
        print(f"Everything ran: {len(table.rows)} figures, of the smallest sizes, so none is shown.")
    else:
        table.print()
    if bench.absent:
        print(f"Not installed, so nothing stands beside ours: {', '.join(sorted(bench.absent))}.")
    return 1 if table.missed else 0


if __name__ == "__main__":
    sys.exit(main())
