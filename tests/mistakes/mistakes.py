#!/usr/bin/env python3
"""Compiles the mistakes that docs/guide/mistakes.md shows: mistakes.py INCLUDES COMPILER...

Each row of the table "What the compiler finds" has a mistake, code that must not compile, what each compiler has to
say about it (one text between backticks for both, or one for g++ and one for clang), and the right code. A compiler gets
all wrong code at once, each row as a file of its own name, so that each message says which row it is about; and then all
right code, which shows that the rows fail for no other reason."""

import os
import re
import subprocess
import sys

PAGE = os.path.join(os.path.dirname(__file__), "../../docs/guide/mistakes.md")
PRELUDE = """
#include <varo/blobs.h>
#include <varo/client.h>
#include <varo/objects.h>

#include <cstddef>
#include <string>
#include <vector>

using namespace varo;
using namespace std::chrono_literals;
"""
# What the code of the rows may use.
FUNCTION = """
#line 1 "row{number}"
void row{number}(FileClient& files, Options& options, Transfer<FileRecord>& upload, Metadata& metadata,
                 const std::vector<std::byte>& bytes, std::vector<FileRecord>& records, BlobStore& blobs,
                 ObjectStore& objects) {{
  {code}
}}
"""
FLAGS = ["-std=c++20", "-Werror=unused-result", "-fsyntax-only", "-x", "c++"]


def rows():
    """(mistake, wrong code, texts, right code) of each."""
    with open(PAGE, encoding="utf-8") as page:
        table = page.read().split("## What the compiler finds")[1].split("\n## ")[0]
    lines = [line for line in table.splitlines() if line.startswith("|")]
    for line in lines[2:]:  # behind the titles and the rule below them
        cells = [cell.strip().replace("\\|", "|") for cell in re.split(r"(?<!\\)\|", line)[1:-1]]
        mistake, wrong, texts, right = cells
        yield mistake, wrong.strip("`"), re.findall("`([^`]+)`", texts), right.strip("`")


def compile_all(compiler, includes, codes):
    """Whether all of it compiles, and what is said, as a text."""
    limit = "-ferror-limit=0" if "clang" in os.path.basename(compiler) else "-fmax-errors=0"
    source = PRELUDE + "".join(FUNCTION.format(number=number, code=code) for number, code in enumerate(codes))
    run = subprocess.run([compiler, *FLAGS, limit, "-I", includes, "-"], input=source, check=False,
                         env={**os.environ, "LC_ALL": "C"}, capture_output=True, text=True)
    # Either compiler writes its quotes in its own way.
    return run.returncode == 0, re.sub("[‘’]", "'", run.stderr)


def errors_by_row(said):
    """Row -> the text of each error in it, with the notes that belong to it. Errors in headers have no row."""
    errors = {}
    for text in re.split(r"^(?=[^ \n]*:\d+:\d+: (?:fatal )?error: )", said, flags=re.MULTILINE)[1:]:
        place = re.match(r"row(\d+):", text)
        errors.setdefault(int(place[1]) if place else None, []).append(text)
    return errors


def faults(compiler, includes, table):
    column = -1 if "clang" in os.path.basename(compiler) else 0
    errors = errors_by_row(compile_all(compiler, includes, [row[1] for row in table])[1])
    for number, (mistake, wrong, texts, _) in enumerate(table):
        said = "".join(errors.get(number, ["nothing"]))
        if texts[column] not in said:
            yield f"{compiler}: {mistake}: {wrong}\n  should say: {texts[column]}\n  says: {said}"
    compiles, said = compile_all(compiler, includes, [row[3] for row in table])
    if not compiles:
        yield f"{compiler}: what should compile does not:\n{said}"


def main():
    includes, compilers = sys.argv[1], sys.argv[2:]
    table = list(rows())
    if len(table) < 20 or not compilers:
        print("mistakes: the table or the compilers are missing")
        return 1
    found = [fault for compiler in compilers for fault in faults(compiler, includes, table)]
    print(*found, f"{len(table)} mistakes, {len(compilers)} compilers, {len(found)} wrong", sep="\n")
    return 1 if found else 0


if __name__ == "__main__":
    sys.exit(main())
