#!/usr/bin/env python3
"""Who may include whom: between the layers, inside them, and which headers of other libraries stand where.
docs/architecture.md says the same in words. All files share one include root, so neither compiler nor linker
would notice a wrong include."""

import fnmatch
import re
import subprocess
import sys
from pathlib import PurePosixPath

ADAPTER = "Binary/BinaryFileAdapterWithMetadata/"
MANAGERS = ("Binary/Binary/BinaryDataManager/", ADAPTER + "Manager/", ADAPTER + "FileAdapterInterface/")
TASKS = ("Binary/Binary/DownloadTask/", "Binary/Binary/UploadTask/", ADAPTER + "Tasks/",
         ADAPTER + "Subtasks/")
UTILS = ("Binary/Binary/Utils/", ADAPTER + "Utils/")
CONSTANTS = ADAPTER + "Constants/"
CALLBACKS = ADAPTER + "Callbacks/"
SANDBOX_USES = ("Platform/", "Sandbox/ServiceProtocol.h")


def floors(layer, names, others):
    """Folders of a layer, from the top down: each may include those below it, and the other layers."""
    folders = tuple(layer + name for name in names)
    return {folder: folders[place + 1:] + others for place, folder in enumerate(folders)}


# Folder -> what its files may include besides the folder itself. All rules count that fit a file, so a folder
# can only narrow what its parent says.
# Of the typed client what tells of failures and requests and stores files: the commands on the classes below it say and
# do the same.
CLI_USES = ("include/varo/", "Client/BlobStates.h", "Client/Failures.h", "Client/FileDestination.h",
            "Client/FileRecords.h", "Client/OperationWatch.h", "Binary/", "Sandbox/", "Platform/")

MAY = {
    "Platform/": (),
    "Platform/System/": ("Platform/Foundation/Mutex.h", "Platform/Foundation/NeverDestroyed.h"),
    "Platform/Foundation/": ("Platform/System/",),
    "Platform/Common/": ("Platform/Foundation/",),
    "Platform/Crypto/": ("Platform/Foundation/",),
    "Platform/Database/": ("Platform/Foundation/",),
    "Platform/Logging/": ("Platform/Foundation/",),
    "Platform/Network/": ("Platform/System/", "Platform/Foundation/", "Platform/Common/",
                          "Platform/Crypto/", "Platform/Logging/"),
    "Platform/TaskEngine/": ("Platform/Foundation/", "Platform/Logging/"),
    "Binary/": ("Platform/",),
    "include/varo/": (),
    # C reads these, so nothing of C++ is below them.
    "include/varo/c/": ("include/varo/export.h", "include/varo/version.h"),
    "Client/": ("include/varo/", "Binary/", "Platform/"),
    # On the typed client, not on what that stands on.
    "Client/C/": ("Client/", "include/varo/", "Platform/Foundation/"),
    "Sandbox/": ("Platform/",),
    "Sandbox/Http/": SANDBOX_USES,
    "Sandbox/Storage/": SANDBOX_USES + ("Sandbox/Http/",),
    "Sandbox/Files/": SANDBOX_USES + ("Sandbox/Http/", "Sandbox/Storage/"),
    "Sandbox/Blobs/": SANDBOX_USES + ("Sandbox/Http/", "Sandbox/Storage/"),
    "Sandbox/Online/": SANDBOX_USES + ("Sandbox/Http/", "Sandbox/Storage/"),
    "Sandbox/Faults/": SANDBOX_USES + ("Sandbox/Http/", "Sandbox/Storage/"),
    "Sandbox/Control/": SANDBOX_USES + ("Sandbox/Http/", "Sandbox/Storage/", "Sandbox/Files/",
                                        "Sandbox/Blobs/", "Sandbox/Online/", "Sandbox/Faults/"),
    "Cli/": CLI_USES,
    **floors("Cli/", ("Commands/", "Pages/", "Demo/", "Run/", "Failures/", "Arguments/", "Terminal/"),
             CLI_USES),
    "examples/": ("include/varo/", "Binary/", "Platform/"),
    "bench/": ("include/varo/", "Binary/", "Platform/", "tests/support/"),
    "tests/": ("Cli/", "Client/", "include/varo/", "Binary/", "Sandbox/", "Platform/"),
}

# Folder -> what its files must not include although the layer may; a folder may include itself.
MUST_NOT = {
    "Client/": ("Client/C/",),
    **{folder: MANAGERS for folder in TASKS},
    **{folder: MANAGERS + TASKS for folder in UTILS},
    CALLBACKS: MANAGERS + TASKS,
    CONSTANTS: MANAGERS + TASKS + UTILS + (CALLBACKS,),
    ADAPTER + "Manager/": (ADAPTER + "FileAdapterInterface/",),
}

# Headers of a library -> the files that may include them. Tests, benchmarks and examples may include any.
LIBRARIES = {
    "curl/": ("Platform/Network/Curl*",),
    "expat.h": ("Platform/Foundation/Xml.cpp", "Sandbox/Online/*.cpp"),
    "sqlite3.h": ("Platform/Database/*.cpp",),
    "spdlog/": ("Platform/Logging/*.cpp",),
    "openssl/": ("Platform/Crypto/*.cpp", "Platform/Network/Curl*.cpp", "Sandbox/*"),
    "SQLiteCpp/": ("Sandbox/*",),
    "CLI/": ("Cli/*.cpp",),
}
C_HEADERS = ("stddef.h", "stdint.h", "string.h")
FREE = ("tests/", "bench/", "examples/")

INCLUDE = re.compile(r'\s*#\s*include\s*(?:"([^"]+)"|<([^>]+)>)')


def includes_of(path):
    """(line number, name, whether it is quoted) of each include of a file."""
    with open(path, encoding="utf-8") as source:
        for number, line in enumerate(source, 1):
            if found := INCLUDE.match(line):
                name = found[1] or found[2]
                # Applications see the folder include/ alone.
                yield number, f"include/{name}" if name.startswith("varo/") else name, found[1] is not None


def refusal(path, name, files):
    """What is wrong with one quoted include, or None."""
    if name not in files:
        return "is no file of the project (names begin at the project's folder)"
    if not any(path.startswith(folder) for folder in MAY):
        return "comes from a folder that has no rule in scripts/checks/includes.py"
    for folder, others in MAY.items():
        if path.startswith(folder) and not name.startswith((folder, *others)):
            return f"is not for {folder}"
    for folder, others in MUST_NOT.items():
        if path.startswith(folder) and name.startswith(others) and not path.startswith(others):
            return f"is not for {folder}"
    return None


def library_refusal(path, name):
    if path.startswith("include/varo/c/") and name in C_HEADERS:
        return None
    # An application gets these headers alone. Those of the standard library have neither folder nor ending.
    if path.startswith("include/varo/") and ("/" in name or "." in name):
        return "is not for include/varo/, which includes the standard library and itself"
    for library, places in LIBRARIES.items():
        if (name.startswith(library) and not path.startswith(FREE)
                and not any(fnmatch.fnmatch(path, place) for place in places)):
            return f"belongs into {', '.join(places)}"
    return None


def circle(graph):
    """Files that include each other in a circle, or None."""
    done, path = set(), []

    def visit(file):
        if file in path:
            return path[path.index(file):] + [file]
        if file in done:
            return None
        path.append(file)
        for other in graph.get(file, ()):
            if found := visit(other):
                return found
        path.pop()
        done.add(file)
        return None

    for file in graph:
        if found := visit(file):
            return found
    return None


def main():
    listed = subprocess.run(["git", "ls-files", "-co", "--exclude-standard", "*.h", "*.cpp", "*.c"],
                            stdout=subprocess.PIPE, check=True, text=True).stdout.splitlines()
    files = {name for name in listed if PurePosixPath(name).parts[0] != "build"}
    faults, graph = [], {}
    for path in sorted(files):
        graph[path] = []
        for number, name, quoted in includes_of(path):
            fault = refusal(path, name, files) if quoted else library_refusal(path, name)
            if fault:
                faults.append(f"{path}:{number}: {name} {fault}")
            if quoted:
                graph[path].append(name)
    if found := circle(graph):
        faults.append("circle: " + " -> ".join(found))
    print(*faults, f"{len(files)} files, {len(faults)} wrong includes", sep="\n")
    return 1 if faults else 0


if __name__ == "__main__":
    sys.exit(main())
