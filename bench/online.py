"""The parts of measure.py about what online transfers are made of: signatures, the task queue."""

import functools
import hashlib
import json
import os
import statistics
import subprocess

from harness import MIB, column

SIGNED_FILE = 4096 * MIB
QUEUED_TASKS = 100_000
QUEUE_OPERATIONS = 6_000_000


def measure_sign(bench, table):
    """Signed header sets beside botocore and bare OpenSSL, and the memory for a large payload."""
    program = bench.program("varo_signing_bench")
    here = os.path.dirname(os.path.abspath(__file__))
    module = os.path.join(here, "node_modules", "aws4")
    # The distribution's interpreter: another one on the path may have another botocore, or none.
    commands = {
        "ours": [program, "ours", str(bench.size(200_000, 100))],
        "derived": [program, "bare", str(bench.size(100_000, 100))],
        "kept": [program, "bare-kept", str(bench.size(200_000, 100))],
        "botocore": ["/usr/bin/python3", "-I", "-B",
                     os.path.join(here, "botocore_signing.py"), str(bench.size(10_000, 100))],
        "aws4": ["node", os.path.join(here, "aws4_signing.js"), str(bench.size(50_000, 100))],
    }

    def rate(command):
        done = subprocess.run(command, stdout=subprocess.PIPE, check=True, text=True)
        return float(done.stdout)

    runs = {name: functools.partial(rate, command) for name, command in commands.items()}
    runs["aws4"] = bench.installed("aws4", runs["aws4"], module)
    rates = bench.interleave(runs)
    for other, name, least in (("botocore", "botocore", 15),
                               ("aws4", "aws4 of npm", 4),
                               ("derived", "OpenSSL, key derived each time", 0.5),
                               ("kept", "OpenSSL, key kept", 0.5)):
        table.compare(f"signed header sets beside {name}", rates["ours"], rates[other], "/s",
                      at_least=least)

    path = os.path.join(bench.directory, "signed.bin")
    size = bench.size(SIGNED_FILE, 2 * MIB)
    digest = hashlib.sha256()
    for _ in range(size // MIB):
        digest.update(bytes(MIB))
    with open(path, "wb") as out:
        out.truncate(size)  # holes: the digest takes as long, the disk nothing
    used = bench.run(program, "file", path, digest.hexdigest())
    os.remove(path)
    table.add("upload of 4 GiB signed, rate", f"{size / MIB / used['wall']:.0f} MiB/s")
    peak = used["peak_kib"] / 1024
    table.add("upload of 4 GiB signed, peak memory", f"{peak:.1f} MiB", goal="at most 16 MiB",
              met=peak <= 16)


def measure_queue(bench, table):
    """The task queue under 8 threads."""
    operations, tasks = bench.size(QUEUE_OPERATIONS, 8_000), bench.size(QUEUED_TASKS, 1_000)

    def run(mode, count):
        done = subprocess.run([bench.program("varo_task_queue_bench"), mode, str(count)],
                              stdout=subprocess.PIPE, check=True, text=True)
        return json.loads(done.stdout)

    runs = bench.interleave({
        "operations": lambda: run("operations", operations),
        "through": lambda: run("through", tasks),
        "direct": lambda: run("direct", tasks),
    })
    rate = statistics.median(column(runs["operations"], "rate"))
    table.add("task queue under 8 threads, operations", f"{rate:.3g} /s")
    table.compare("tasks through the queue beside started at once",
                  column(runs["through"], "rate"), column(runs["direct"], "rate"), "/s")
    fewest = min(min(used["runs"], used["ended"]) for used in runs["through"])
    most = max(max(used["runs"], used["ended"]) for used in runs["through"])
    table.add(f"{tasks:,} tasks through the queue, run and ended once in every round",
              f"{fewest:,}", goal="all", met=fewest == most == tasks)
