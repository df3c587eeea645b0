#!/usr/bin/env python3
"""Compares what the shared library exports with tests/package/exports.txt: exports.py LIBRARY. With --write before
it, writes that list; do so when VARO_API was added to, or removed from, a header, and look at the difference.
Needs nm and c++filt."""

import subprocess
import sys
from pathlib import Path

LIST = Path(__file__).resolve().parents[2] / "tests/package/exports.txt"


def exports_of(library):
    """The defined dynamic symbols as C++ has them, without the version behind "@"."""
    names = subprocess.run(["nm", "--dynamic", "--defined-only", "--format=posix", library],
                           stdout=subprocess.PIPE, check=True, text=True).stdout
    # "A" is the name of the version itself.
    mangled = [line.split()[0].split("@")[0] for line in names.splitlines() if line.split()[1] != "A"]
    shown = subprocess.run(["c++filt"], input="\n".join(mangled), stdout=subprocess.PIPE, check=True, text=True)
    return sorted(set(shown.stdout.splitlines()))


def main():
    exported = exports_of(sys.argv[-1])
    if "--write" in sys.argv:
        LIST.write_text("\n".join(exported) + "\n", encoding="utf-8")
        return 0
    listed = LIST.read_text(encoding="utf-8").splitlines()
    faults = [f"exported, and not listed: {name}" for name in exported if name not in listed]
    faults += [f"listed, and not exported: {name}" for name in listed if name not in exported]
    print(*faults, f"{len(exported)} symbols exported, {len(faults)} wrong", sep="\n")
    return 1 if faults else 0


if __name__ == "__main__":
    sys.exit(main())
