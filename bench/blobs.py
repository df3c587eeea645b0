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

from harness import MIB, column
from servers import Nginx

RANGE = MIB
PARALLEL = 4  # ranges of a blob under way, as many as applications have without asking
SIZE = 256 * MIB
AT_ONCE = 5
SIZE_AT_ONCE = 200 * MIB
MANY = 10_000
SMALL = 1024
SYNCS_EACH = 6  # of a blob, in the rollback journal
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

    def command(self, mode, url, parallel):
        return [self.bench.program("varo_blobs"), mode, url, self.object, str(RANGE), str(parallel),
                str(self.count), self.bench.home]

    def ours(self, mode, url, parallel=PARALLEL):
        self.make_database()
        used = self.run(*self.command(mode, url, parallel))
        if mode == "managed":
            self.check_database()
        return used

    def timed(self, url, parallel=PARALLEL):
        """The seconds of `ours` from the first create to the last end, and those in SQLite."""
        self.make_database()
        self.clear()
        done = subprocess.run(self.command("timed", url, parallel), stdout=subprocess.PIPE, check=True,
                              text=True)
        self.check_files()
        self.check_database()
        return json.loads(done.stdout)

    def bare(self, write, url):
        return self.run(self.bench.program("bare_ranges"), f"{url}/blobs/{self.object}/binary",
                        str(RANGE), str(write), *self.files())

    def curl(self, url, *options):
        """All of them with one curl."""
        address = f"{url}/blobs/{self.object}/binary"
        return self.run("curl", "-sf", *options,
                        *(word for path in self.files() for word in ("-o", path, address)))

    def aria2(self, url):
        """Five connections, with no space taken in advance."""
        (path,) = self.files()
        return self.run("aria2c", "-q", "--no-conf", "-x5", "-k1M", "--file-allocation=none",
                        "-d", self.directory, "-o", os.path.basename(path),
                        f"{url}/blobs/{self.object}/binary")

    def curl_synced(self, url):
        (path,) = self.files()
        return self.run("sh", "-c", 'curl -sf -o "$1" "$2" && sync -d "$1"', "sh", path,
                        f"{url}/blobs/{self.object}/binary")

    def rclone(self, url):
        # Named, not listed, and into an empty folder: the least that it can do.
        names = os.path.join(self.bench.directory, "names")
        with open(names, "w", encoding="utf-8") as out:
            out.writelines(f"{os.path.basename(path)}\n" for path in self.files())
        return self.run("rclone", "copy", "--config=", "--files-from-raw", names, "--no-traverse",
                        "--no-check-dest", "--transfers", str(self.count),
                        "--http-url", f"{url}/copies/{self.object}/", ":http:", self.directory)

    def compare_bytes(self, who):
        for path in self.files():
            if not filecmp.cmp(self.bench.file(self.size), path, shallow=False):
                raise RuntimeError(f"{who} stored other bytes")


def measure(blobs, sides):
    """Rounds of all sides, after each has been found to store the right bytes."""
    with Nginx(blobs.bench.files, blobs.bench.directory) as nginx:
        runs = {name: side and functools.partial(side, nginx.url) for name, side in sides.items()}
        for name, run in runs.items():
            if run:
                run()
                blobs.compare_bytes(name)
        return blobs.bench.interleave(runs)


def add_share(table, figure, measurements):
    share = statistics.median(used["sqlite"] / used["seconds"] for used in measurements)
    table.add(f"{figure}, share of the time in SQLite", f"{100 * share:.1f} %")


def measure_blob(bench, table):
    """One blob of 256 MiB in ranges of 1 MiB through the manager."""
    blobs = Blobs(bench, bench.size(SIZE, 2 * MIB), 1)
    used = measure(blobs, {
        "ours": functools.partial(blobs.ours, "managed"),
        "task": functools.partial(blobs.ours, "task"),
        "timed": blobs.timed,
        "bare": functools.partial(blobs.bare, RANGE),
        "small": functools.partial(blobs.bare, SMALL_WRITE),
        "curl": blobs.curl,
        "synced": blobs.curl_synced,
    })
    figure = "blob of 256 MiB"
    for name, other, most_time, most_cpu in (
            ("the bare loop", "bare", 1.05, 1.15),
            ("the bare loop with writes of 32 KiB", "small", 1.05, 1.15),
            ("curl", "curl", 1.00, None),
            ("curl and sync -d", "synced", 0.60, None),
            ("the task without the table", "task", 1.05, None)):
        table.compare_runs(f"{figure} beside {name}", used["ours"], used[other], most_time, most_cpu)
    add_share(table, figure, used["timed"])
    table.add_peak(figure, used["ours"], 32)


def measure_blobs(bench, table):
    """Five blobs of 200 MiB at once through the manager."""
    blobs = Blobs(bench, bench.size(SIZE_AT_ONCE, 2 * MIB), AT_ONCE)
    used = measure(blobs, {
        "ours": functools.partial(blobs.ours, "managed"),
        "bare": functools.partial(blobs.bare, RANGE),
        "small": functools.partial(blobs.bare, SMALL_WRITE),
        "curl": lambda url: blobs.curl(url, "-Z"),
        "rclone": bench.installed("rclone", blobs.rclone),
    })
    figure = f"{AT_ONCE} blobs of 200 MiB at once"
    for name, other, most_time in (("the bare loop", "bare", 1.00),
                                   ("the bare loop with writes of 32 KiB", "small", 1.00),
                                   ("curl -Z", "curl", 0.70),
                                   ("rclone", "rclone", 1.00)):
        table.compare_runs(f"{figure} beside {name}", used["ours"], used[other], most_time)
    table.add_peak(figure, used["ours"], 28)


def measure_many_blobs(bench, table):
    """Many small blobs, all created at once, started as they are created: blobs a second from the
    first create to the last end, how often each waits for the disk, and how much of the time is
    SQLite's."""
    modes = {"delete": "rollback journal", "wal": "WAL"}
    many = bench.size(MANY, 20)
    with Nginx(bench.files, bench.directory) as nginx:
        def run(journal):
            return Blobs(bench, SMALL, many, journal).timed(nginx.url)

        used = bench.interleave({mode: functools.partial(run, mode) for mode in modes},
                                rounds=MANY_ROUNDS)
    for mode, name in modes.items():
        figure = f"{many:,} blobs of 1 KiB, {name}"
        rate = many / statistics.median(column(used[mode], "seconds"))
        table.add(f"{figure}, blobs a second", f"{rate:.4g} /s")
        syncs = statistics.median(column(used[mode], "syncs")) / many
        goal = (f"at most {SYNCS_EACH}", syncs <= SYNCS_EACH) if mode == "delete" else ("", None)
        table.add(f"{figure}, waits for the disk each", f"{syncs:.2f}", "", "", *goal)
        add_share(table, figure, used[mode])
