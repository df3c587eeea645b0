#!/usr/bin/env python3
"""Makes a program of a page of the guide:  extract.py PAGE PROGRAM.cpp

All its blocks of C++ are one program, in their order, inside the function that runs the page (Guide.h has what they may
use). A page with `int main` in it has that program alone. What a reader does not see stands in comments of the page:
  <!-- at namespace scope -->   the block that follows is not inside the function
  <!-- check: EXPRESSION -->    has to be true at this place
  <!-- declare: STATEMENT -->   what a reader has of their own, such as an address
A block of text is what the blocks before it have printed."""

import re
import sys

PART = re.compile(r"^```(cpp|text)\n(.*?)^```$|^<!-- (.*?) -->$", re.MULTILINE | re.DOTALL)


def parts(page):
    """(line, kind, text) of each block and comment."""
    for found in PART.finditer(page):
        line = page.count("\n", 0, found.start()) + 1
        if found[1]:
            yield line + 1, found[1], found[2]
        else:
            yield line, "comment", found[3]


def program(name, page):
    outside, inside, isOutside = [], [], False
    for line, kind, text in parts(page):
        place = f'#line {line} "{name}"\n'
        if kind == "cpp" and "int main(" in text:
            return place + text
        if kind == "cpp":
            (outside if isOutside else inside).append(place + text)
            isOutside = False
        elif kind == "text":
            inside.append(f'{place}guide.printed(R"({text})");\n')
        elif text.startswith("declare: "):
            inside.append(place + text[9:])
        elif text == "at namespace scope":
            isOutside = True
        elif text.startswith("check: "):
            inside.append(f"{place}guide.check({text[7:]}, {line});\n")
    return "\n".join(['#include "tests/guide/Guide.h"', *outside,
                      "void varo::guide::run(Guide& guide, FileClient& files, const std::string& url) {",
                      "(void)guide, (void)files, (void)url;\n{", *inside, "}\n}", ""])


def main():
    source, target = sys.argv[1:]
    with open(source, encoding="utf-8") as page:
        text = program(source, page.read())
    with open(target, "w", encoding="utf-8") as made:
        made.write(text)


if __name__ == "__main__":
    main()
