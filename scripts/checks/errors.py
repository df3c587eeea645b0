#!/usr/bin/env python3
"""Compares docs/errors.md with the headers that define domains, codes and kinds of failures, and the
numbers of docs/cli.md with the polling schedule. Says what differs, and fails then."""

import pathlib
import re
import sys

ROOT = pathlib.Path(__file__).resolve().parent.parent.parent
BINARY = "Binary/BinaryFileAdapterWithMetadata/"
SOURCES = [
    BINARY + "Constants/ErrorConstants.h",
    "Platform/Network/HttpTransportError.h",
    "Platform/TaskEngine/EngineErrors.h",
    "Platform/TaskEngine/VSAbstractLoopingTask.cpp",
    "Platform/Database/DatabaseError.h",
    "Platform/Foundation/Json.h",
    "Platform/Foundation/Xml.h",
    "Platform/Foundation/Error.h",
    "Platform/Crypto/Sha256.h",
    "Cli/Arguments/Arguments.h",
    "Cli/Failures/CommandErrors.h",
]
# The name of a service in its answers, not of an error.
NO_ERROR_DOMAINS = {"kMiddlewareDomain"}

TEXT = r'((?:"[^"]*"\s*)+);'
DOMAIN = r"constexpr std::string_view (k\w*(?:Domain|DownloadTaskError)) =\s*"
problems = []


def read(path):
    return (ROOT / path).read_text(encoding="utf-8")


def joined(literals):
    return "".join(re.findall(r'"([^"]*)"', literals))


def differ(what, here, there):
    for name in sorted(here - there, key=str):
        problems.append(f"{what} {name} is not in docs/errors.md")
    for name in sorted(there - here, key=str):
        problems.append(f"docs/errors.md has {what} {name}, which is not defined")


def codes_of(text):
    found = re.findall(r"constexpr std::int(?:32|64)_t (k\w+) = (\d+);", text)
    for body in re.findall(r"enum (?:class )?\w+ : std::int64_t \{(.*?)\};", text, re.S):
        found += re.findall(r"(k\w+) = (\d+)", body)
    return {(name, int(number)) for name, number in found}


def domains_of(text):
    domains = {joined(literals) for _, literals in re.findall(DOMAIN + TEXT, text)}
    for alias in re.findall(DOMAIN + r"(k\w+);", text):
        message = re.search(rf"string_view {alias[1]} =\s*{TEXT}", text)
        domains.add(joined(message[1]))
    return domains


def check_codes_and_domains(page):
    codes, domains = set(), set()
    for source in SOURCES:
        codes |= codes_of(read(source))
        domains |= domains_of(read(source))
    rows = re.findall(r'^\| "([^"]+)"(?: (\d+))? \| (?:`(k\w+)`)?', page, re.M)
    listed = {(name, int(number)) for _, number, name in rows if name}
    unused = re.search(r"## Defined, but not raised\n(.*?)\n## ", page, re.S)[1]
    listed |= {(name, int(number)) for name, number in re.findall(r"`(k\w+)` \((\d+)\)", unused)}
    differ("the code", codes, listed)
    named = {domain for domain, _, _ in rows}
    differ("the domain", domains, named | {d for d in domains if f'"{d}"' in page})


def check_that_no_domain_is_elsewhere():
    for folder in ("Binary", "Platform", "Cli"):
        for path in sorted((ROOT / folder).rglob("*")):
            name = path.relative_to(ROOT).as_posix()
            if path.suffix not in (".h", ".cpp") or name in SOURCES:
                continue
            for constant, _ in re.findall(r"string_view (k\w*Domain) =\s*(\")", read(name)):
                if constant not in NO_ERROR_DOMAINS:
                    problems.append(f"{name} defines the domain {constant}: it belongs to a header of errors")


def check_transport_failures(page):
    header = read("Platform/Network/TransportFailure.h")
    body = re.search(r"enum class TransportFailure \{(.*?)\};", header, re.S)[1]
    kinds = set(re.findall(r"^\s*k(\w+),", body, re.M))
    names = set(re.findall(r'\{k\w+, "(\w+)"\}', read("Platform/Network/TransportFailure.cpp")))
    kinds = {kind[0].lower() + kind[1:] for kind in kinds}
    if kinds != names:
        problems.append(f"TransportFailure.cpp does not name {sorted(kinds ^ names)}")
    table = page[page.index('| failure |') + 1 :]
    listed = set(re.findall(r"^\| ([a-z]\w+) \|", table[: table.index("\n\n")], re.M))
    differ("the transport failure", kinds, listed)


def check_polling_schedule():
    schedule = read(BINARY + "Subtasks/PollingSchedule.h")
    requests = int(re.search(r"kMaxStatusRequests = (\d+);", schedule)[1])
    if "(std::int64_t{1} << request) - 1" not in schedule:
        problems.append("the waits of PollingSchedule.h have changed: so must scripts/checks/errors.py")
    waits = [(1 << request) - 1 for request in range(1, requests)]
    guide = " ".join(read("docs/cli.md").split())
    for words in (f"up to {requests} times", f"at most {sum(waits)} seconds together"):
        if words not in guide:
            problems.append(f'docs/cli.md does not say "{words}"')


page = read("docs/errors.md")
check_codes_and_domains(page)
check_that_no_domain_is_elsewhere()
check_transport_failures(page)
check_polling_schedule()
for problem in problems:
    print(problem)
sys.exit(1 if problems else 0)
