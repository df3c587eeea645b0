#!/usr/bin/env python3
"""Looks at every document (*.md): each relative link leads to a file and, behind "#", to a heading of it, and
each name that looks like a path of this project is one. Such names are those that begin with a folder of the
project, and names of sources and documents between backticks (`Name.h`), wherever the file lies. A "*" stands
for any text. What is built has no file here: paths below build/ are not looked at. And README shows its
first program as examples/ has it, word for word."""

import fnmatch
import os
import re
import subprocess
import sys

LINK = re.compile(r"\]\(([^)\s]+)\)")  # the text before it may have begun on another line
FENCE = re.compile(r"^\s*(```|~~~)")
INCLUDE = re.compile(r'^\s*#include "([^"]+)"')
CODE = re.compile(r"`([^`]+)`")
SOURCE = re.compile(r"[\w*-]+\.(h|cpp|cmake|md|py)")
URL = re.compile(r"\b\w+://\S+")


def read(path):
    with open(path, encoding="utf-8") as text:
        return text.read().splitlines()


def anchors(path):
    """The names of a document's headings, as hosts of Git make them."""
    names, fenced = {}, False
    for line in read(path):
        if FENCE.match(line):
            fenced = not fenced
        elif not fenced and line.startswith("#"):
            text = re.sub(r"[^\w\- ]", "", line.lstrip("#").strip().lower()).replace(" ", "-")
            names[text] = names.get(text, -1) + 1
    return {text if n == 0 else f"{text}-{n}" for text, last in names.items() for n in range(last + 1)}


class Project:
    """Its files and folders."""

    def __init__(self):
        listed = subprocess.run(["git", "ls-files", "-co", "--exclude-standard"],
                                stdout=subprocess.PIPE, check=True, text=True).stdout.splitlines()
        self.files = {path for path in listed if os.path.exists(path)}
        self.names = {os.path.basename(path) for path in self.files}
        self.folders = {path[:at] for path in self.files
                        for at in range(len(path)) if path[at] == "/"}
        top = "|".join(sorted({re.escape(path.split("/")[0]) for path in self.folders}))
        self.path = re.compile(rf"(?<![\w/.~$*-])(?:{top})/[\w./*{{}},-]*")

    def has(self, path):
        path = path.rstrip("/")
        if "*" in path:
            return bool(fnmatch.filter(self.files, path))
        return path in self.files or path in self.folders

    def has_name(self, name):
        return bool(fnmatch.filter(self.names, name))


def link_fault(project, document, target):
    if re.match(r"\w+:", target):
        return None
    name, _, anchor = target.partition("#")
    path = os.path.normpath(os.path.join(os.path.dirname(document), name)) if name else document
    if not project.has(path):
        return f"link to {target}: no such file"
    if anchor and anchor not in anchors(path):
        return f"link to {target}: no such heading"
    return None


def path_faults(project, line):
    for path in project.path.findall(URL.sub("", LINK.sub("", line))):
        path = path.rstrip(".,-")
        if not project.has(path):
            yield f"{path}: no such file or folder"


def faults_of(project, document):
    fenced = False
    for number, line in enumerate(read(document), 1):
        found = []
        if FENCE.match(line):
            fenced = not fenced
        elif fenced:
            if (include := INCLUDE.match(line)) and not project.has(include[1]):
                found.append(f"{include[1]}: no such file")
            elif not include:
                found += path_faults(project, line)
        else:
            found += [fault for target in LINK.findall(line)
                      if (fault := link_fault(project, document, target))]
            found += path_faults(project, line)
            found += [f"{name}: no file of this name" for name in CODE.findall(line)
                      if SOURCE.fullmatch(name) and not project.has_name(name)]
        for fault in found:
            yield f"{document}:{number}: {fault}"


def main():
    project = Project()
    documents = sorted(path for path in project.files if path.endswith(".md"))
    faults = [fault for document in documents for fault in faults_of(project, document)]
    if "\n".join(read("examples/first_program.cpp")) not in "\n".join(read("README.md")):
        faults.append("README.md: its first program is not examples/first_program.cpp")
    print(*faults, f"{len(documents)} documents, {len(faults)} wrong links and paths", sep="\n")
    return 1 if faults else 0


if __name__ == "__main__":
    sys.exit(main())
