#!/usr/bin/env python3
"""Compares what the shared library exports with tests/package/exports.txt: exports.py LIBRARY. With --write before
it, writes that list; do so when VARO_API was added to, or removed from, a header, and look at the difference.
Needs nm and c++filt."""

import re
import subprocess
import sys
from pathlib import Path

PROJECT = Path(__file__).resolve().parents[2]
LIST = PROJECT / "tests/package/exports.txt"
TRANSFERS = PROJECT / "Client/Transfer.cpp"


def exports_of(library):
    """The defined dynamic symbols as C++ has them, without the version behind "@"."""
    names = subprocess.run(["nm", "--dynamic", "--defined-only", "--format=posix", library],
                           stdout=subprocess.PIPE, check=True, text=True).stdout
    # "A" is the name of the version itself.
    mangled = [line.split()[0].split("@")[0] for line in names.splitlines() if line.split()[1] != "A"]
    shown = subprocess.run(["c++filt"], input="\n".join(mangled), stdout=subprocess.PIPE, check=True, text=True)
    return sorted(set(shown.stdout.splitlines()))


def hidden_transfers(exported):
    """How many kinds of `Transfer` are compiled, but cannot be linked with."""
    compiled = re.findall(r"^template class .*Transfer<", TRANSFERS.read_text(encoding="utf-8"), re.M)
    return len(compiled) - sum(name.startswith("varo::Transfer<") and name.endswith(">::get() const")
                               for name in exported)


def main():
    exported = exports_of(sys.argv[-1])
    if hidden := hidden_transfers(exported):
        print(f"{hidden} kinds of Transfer are not exported: see the end of {TRANSFERS.name}")
        return 1
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
