"""What all parts of the measurement share: the table, the programs and files, and the rounds."""

import json
import os
import random
import shutil
import statistics
import subprocess

MIB = 1024 * 1024
LARGE = 1024 * MIB


class Table:
    """The figures, each with its goal where it has one. A short run is not held to goals of time
    and memory."""

    def __init__(self, short):
        self.rows = []
        self.missed = 0
        self.short = short

    def add(self, figure, ours, theirs="", ratio="", goal="", met=None):
        if self.short and goal != "all":  # that everything was done is no matter of time
            goal, met = "", None
        verdict = {None: "", True: "met", False: "MISSED"}[met]
        self.missed += met is False
        self.rows.append((figure, ours, theirs, ratio, goal, verdict))

    def compare(self, figure, ours, theirs, unit, at_most=None, at_least=None):
        """The median of the ratios of ours to theirs, round by round, with the quartiles of these
        ratios. Two lists in the order of the rounds; `theirs` is empty where it is not installed,
        which misses a goal."""
        goal, holds = "", None
        if at_most is not None:
            goal, holds = f"at most {at_most:.2f}", lambda ratio: ratio <= at_most
        if at_least is not None:
            goal, holds = f"at least {at_least:.2f}", lambda ratio: ratio >= at_least
        mine = f"{statistics.median(ours):.4g} {unit}"
        if not theirs:
            self.add(figure, mine, "not installed", "", goal, None if holds is None else False)
            return
        ratios = [one / other for one, other in zip(ours, theirs, strict=True)]
        ratio, text = statistics.median(ratios), f"{statistics.median(ratios):.2f}"
        if len(ratios) > 1:
            low, _, high = statistics.quantiles(ratios, n=4, method="inclusive")
            text += f" ({low:.2f} to {high:.2f})"
        self.add(figure, mine, f"{statistics.median(theirs):.4g} {unit}", text, goal,
                 None if holds is None else holds(ratio))

    def compare_runs(self, figure, ours, theirs, most_time=None, most_cpu=None):
        """Time and CPU of two lists of what `Bench.run` gives."""
        self.compare(f"{figure}, time", column(ours, "wall"), column(theirs, "wall"), "s",
                     at_most=most_time)
        self.compare(f"{figure}, CPU", column(ours, "cpu"), column(theirs, "cpu"), "s",
                     at_most=most_cpu)

    def add_peak(self, figure, measurements, most):
        """The largest peak of all rounds."""
        worst = max(column(measurements, "peak_kib")) / 1024
        self.add(f"{figure}, peak memory", f"{worst:.1f} MiB", goal=f"at most {most} MiB",
                 met=worst <= most)

    def print(self):
        head = ("figure", "ours", "beside", "ratio", "goal", "")
        widths = [max(len(row[i]) for row in [head, *self.rows]) for i in range(len(head))]
        for row in [head, tuple("-" * width for width in widths), *self.rows]:
            print("  ".join(cell.ljust(width) for cell, width in zip(row, widths)).rstrip())


class Bench:
    """Programs, files and servers that the parts share. A short run does everything once, with the
    smallest sizes."""

    def __init__(self, programs, directory, rounds, short):
        self.programs = programs
        self.varobinary = os.path.join(programs, "..", "Cli", "varobinary")
        self.rounds = 1 if short else rounds
        self.short = short
        self.directory = directory
        self.files = os.path.join(directory, "files")
        self.home = os.path.join(directory, "home")
        self.downloads = os.path.join(self.home, "Downloads")
        os.makedirs(self.files)
        self.absent = set()
        self.empty_home()

    def installed(self, name, run, path=None):
        """`run`, or None where there is no program `name`, or nothing at `path`; that is said behind
        the table."""
        if os.path.exists(path) if path else shutil.which(name):
            return run
        self.absent.add(name)
        return None

    def size(self, full, short):
        """How much of something this run takes."""
        return short if self.short else full

    def empty_home(self):
        """Removes what an earlier part has stored."""
        shutil.rmtree(self.home, ignore_errors=True)
        os.makedirs(self.downloads)

    def program(self, name):
        return os.path.join(self.programs, name)

    def file(self, size):
        """A file of `size` random bytes, in the page cache, written out."""
        path = os.path.join(self.files, f"{size}.bin")
        if not os.path.exists(path):
            with open(path, "wb") as out:
                for offset in range(0, size, MIB):
                    out.write(os.urandom(min(MIB, size - offset)))
                out.flush()
                os.fsync(out.fileno())
        return path

    def run(self, *command):
        """Wall and CPU seconds and peak memory (KiB) of one command."""
        done = subprocess.run([self.program("run_measured"), *command],
                              stdout=subprocess.PIPE, check=True, text=True)
        used = json.loads(done.stdout)
        if used["exit"] != 0:
            raise RuntimeError(f"{' '.join(command)} ends with {used['exit']}")
        return used

    def interleave(self, runs, rounds=None):
        """Runs each of `runs` (name -> function) once a round, first once to warm up, but in a short
        run. The order changes from round to round, so that none always follows the same. What is
        None is not run, and has no measurements."""
        names = [name for name, run in runs.items() if run]
        order = random.Random(1)
        measured = {name: [] for name in runs}
        warm_up = 0 if self.short else 1
        for number in range(self.size(rounds or self.rounds, 1) + warm_up):
            order.shuffle(names)
            for name in names:
                used = runs[name]()
                if number >= warm_up:
                    measured[name].append(used)
        return measured


def column(measurements, key):
    return [used[key] for used in measurements]
