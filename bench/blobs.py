"""The figures of offline blobs: binary columns of records that come down into files, with a real
database, beside libcurl programs that fetch and write the same ranges."""

import contextlib
import filecmp
import functools
import json
import os
import sqlite3
import statistics
import subprocess

from harness import LARGE, MIB, column
from servers import Nginx

RANGE = MIB
AT_ONCE = 5
SIZE_AT_ONCE = 200 * MIB
MANY = 10_000
SMALL = 1024
MOST_COMMITS = 1.25  # a blob: six waits for the disk
MANY_ROUNDS = 3  # of half a minute each; nothing is divided by anything else
# Linux keeps memory for the file cache at hand in pieces of up to this.
SMALL_WRITE = 32 * 1024

AVAILABLE = 50


class Blobs:
    """Copies of one object: who brings them down, into which files, and that they are right."""

    def __init__(self, bench, size, count, journal="delete"):
        self.bench, self.size, self.count, self.journal = bench, size, count, journal
        self.object = os.path.basename(bench.file(size))
        self.schema = subprocess.run([bench.program("varo_blobs"), "schema"],
                                     stdout=subprocess.PIPE, check=True, text=True).stdout
        self.directory = os.path.join(bench.home, "Documents", "blobs")
        self.database = os.path.join(bench.home, "Library", "WEBSQLDIRECTORY", "sync.db")
        for folder in (self.directory, os.path.dirname(self.database)):
            os.makedirs(folder, exist_ok=True)

    def files(self):
        return [os.path.join(self.directory, str(n)) for n in range(1, self.count + 1)]

    def make_database(self):
        """A new one with a record for each blob."""
        for suffix in ("", "-journal", "-wal", "-shm"):
            with contextlib.suppress(FileNotFoundError):
                os.remove(self.database + suffix)
        with contextlib.closing(sqlite3.connect(self.database)) as database, database:
            database.execute(f"PRAGMA journal_mode = {self.journal}")
            database.execute("CREATE TABLE records(id TEXT PRIMARY KEY, blobref_image TEXT)")
            database.execute(self.schema)
            database.executemany("INSERT INTO records VALUES (?, 'NULL')",
                                 ((str(n),) for n in range(1, self.count + 1)))

    def commits(self):
        """A number that each commit to a database without a write-ahead log counts up
        (https://www.sqlite.org/fileformat.html, 1.3.7)."""
        with open(self.database, "rb") as file:
            file.seek(24)
            return int.from_bytes(file.read(4), "big")

    def check_database(self):
        with contextlib.closing(sqlite3.connect(self.database)) as database:
            there = database.execute(
                "SELECT count(*) FROM records JOIN varosyncBLOBSTOREMANAGER blob"
                " ON blob.id = blobref_image WHERE state = ? AND size = ? AND localPath LIKE ?",
                (AVAILABLE, self.size, self.directory + "/%")).fetchone()[0]
        if there != self.count:
            raise RuntimeError(f"the database tells of {there} of {self.count} blobs")

    def clear(self):
        # Removed just before, so that each program writes to memory that was in use until now: a
        # virtual machine may take longer over memory that has been free for a while.
        with os.scandir(self.directory) as entries:
            for entry in entries:
                os.remove(entry.path)

    def run(self, *command):
        self.clear()
        used = self.bench.run(*command)
        self.check_files()
        return used

    def check_files(self):
        for path in self.files():
            if os.path.getsize(path) != self.size:
                raise RuntimeError(f"{path} has {os.path.getsize(path)} bytes")

    def ours(self, mode, url):
        self.make_database()
        used = self.run(self.bench.program("varo_blobs"), mode, url, self.object, str(RANGE),
                        str(self.count), self.bench.home)
        if mode == "managed":
            self.check_database()
        return used

    def timed(self, url):
        """The seconds of `ours` from the first create to the last end, and those in SQLite; the
        commits, unless there is a write-ahead log."""
        self.make_database()
        self.clear()
        before = self.commits()
        done = subprocess.run([self.bench.program("varo_blobs"), "timed", url, self.object,
                               str(RANGE), str(self.count), self.bench.home],
                              stdout=subprocess.PIPE, check=True, text=True)
        commits = self.commits() - before
        self.check_files()
        self.check_database()
        return {**json.loads(done.stdout), "commits": commits}

    def bare(self, write, url):
        return self.run(self.bench.program("bare_ranges"), f"{url}/blobs/{self.object}/binary",
                        str(RANGE), str(write), *self.files())

    def compare_bytes(self, who):
        for path in self.files():
            if not filecmp.cmp(self.bench.file(self.size), path, shallow=False):
                raise RuntimeError(f"{who} stored other bytes")


def measure(blobs, sides):
    """Rounds of all sides, after each has been found to store the right bytes."""
    with contextlib.ExitStack() as stack:
        nginx = Nginx(blobs.bench.files, blobs.bench.directory)
        stack.callback(nginx.stop)
        runs = {name: functools.partial(side, nginx.url) for name, side in sides.items()}
        for name, run in runs.items():
            run()
            blobs.compare_bytes(name)
        return blobs.bench.interleave(runs)


def add_peak(table, figure, measurements, most):
    worst = max(column(measurements, "peak_kib")) / 1024
    table.add(f"{figure}, peak memory", f"{worst:.1f} MiB", "", "", f"at most {most} MiB",
              worst <= most)


def add_share(table, figure, measurements):
    share = statistics.median(used["sqlite"] / used["seconds"] for used in measurements)
    table.add(f"{figure}, share of the time in SQLite", f"{100 * share:.1f} %", "", "")


def measure_blob(bench, table):
    """One blob of 1 GiB in ranges of 1 MiB through the manager."""
    blobs = Blobs(bench, bench.size(LARGE, 2 * MIB), 1)
    used = measure(blobs, {
        "ours": functools.partial(blobs.ours, "managed"),
        "task": functools.partial(blobs.ours, "task"),
        "timed": blobs.timed,
        "bare": functools.partial(blobs.bare, RANGE),
        "small": functools.partial(blobs.bare, SMALL_WRITE),
    })
    figure = "blob of 1 GiB"
    for name, other, most_time, most_cpu in (
            ("beside the bare loop", "bare", 1.15, 1.30),
            ("beside the bare loop with writes of 32 KiB", "small", None, None),
            ("beside the task without the table", "task", 1.05, None)):
        table.compare(f"{figure} {name}, time", column(used["ours"], "wall"),
                      column(used[other], "wall"), "s", at_most=most_time)
        table.compare(f"{figure} {name}, CPU", column(used["ours"], "cpu"),
                      column(used[other], "cpu"), "s", at_most=most_cpu)
    add_share(table, figure, used["timed"])
    add_peak(table, figure, used["ours"], 32)


def measure_blobs(bench, table):
    """Five blobs of 200 MiB at once through the manager."""
    blobs = Blobs(bench, bench.size(SIZE_AT_ONCE, 2 * MIB), AT_ONCE)
    used = measure(blobs, {
        "ours": functools.partial(blobs.ours, "managed"),
        "bare": functools.partial(blobs.bare, RANGE),
        "small": functools.partial(blobs.bare, SMALL_WRITE),
    })
    figure = f"{AT_ONCE} blobs of 200 MiB at once"
    for name, other, most_time in (("beside the bare loop", "bare", 1.25),
                                   ("beside the bare loop with writes of 32 KiB", "small", None)):
        table.compare(f"{figure} {name}, time", column(used["ours"], "wall"),
                      column(used[other], "wall"), "s", at_most=most_time)
        table.compare(f"{figure} {name}, CPU", column(used["ours"], "cpu"),
                      column(used[other], "cpu"), "s")
    add_peak(table, figure, used["ours"], 48)


def measure_many_blobs(bench, table):
    """Many small blobs, all created at once, started as they are created: blobs a second from the
    first create to the last end, and how much of that time is SQLite's."""
    modes = {"delete": "rollback journal", "wal": "WAL"}
    many = bench.size(MANY, 20)
    with contextlib.ExitStack() as stack:
        nginx = Nginx(bench.files, bench.directory)
        stack.callback(nginx.stop)

        def run(journal):
            return Blobs(bench, SMALL, many, journal).timed(nginx.url)

        used = bench.interleave({mode: functools.partial(run, mode) for mode in modes},
                                rounds=MANY_ROUNDS)
    for mode, name in modes.items():
        figure = f"{many:,} blobs of 1 KiB, {name}"
        rate = many / statistics.median(column(used[mode], "seconds"))
        table.add(f"{figure}, blobs a second", f"{rate:.4g} /s", "", "")
        add_share(table, figure, used[mode])
        if mode == "delete":
            # Each waits for the disk four times; a blob's file adds one, of its data.
            commits = statistics.median(column(used[mode], "commits")) / many
            table.add(f"{figure}, commits a blob", f"{commits:.2f}", "", "",
                      f"at most {MOST_COMMITS}", commits <= MOST_COMMITS)
