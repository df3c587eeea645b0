"""The part of measure.py about downloads that are ended early."""

import os
import socket
import subprocess
import threading
import time

from harness import MIB

RANGE = 64 * MIB
AFTER_MS = 300
PIECE = 8 * 1024
SENT_LATER = 256 * 1024  # bytes that may arrive after the end
RATES = {"1 MiB/s": MIB, "16 MiB/s": 16 * MIB, "64 MiB/s": 64 * MIB}


class SlowServer:
    """Answers one request with a range of 64 MiB, at most `rate` bytes a second, and notes when
    it has sent how much. The socket's own buffer is small, so that what was sent has nearly
    arrived."""

    def __init__(self, rate):
        self.rate = rate
        self.sent = []  # (nanoseconds, bytes so far)
        self.listener = socket.create_server(("127.0.0.1", 0))
        self.listener.setsockopt(socket.SOL_SOCKET, socket.SO_SNDBUF, PIECE)
        self.url = f"http://127.0.0.1:{self.listener.getsockname()[1]}/object"
        self.thread = threading.Thread(target=self.serve)
        self.thread.start()

    def serve(self):
        connection, _ = self.listener.accept()
        with connection, self.listener:
            connection.recv(65536)
            connection.sendall(b"HTTP/1.1 206 Partial Content\r\n"
                               b"Content-Length: %d\r\nContent-Range: bytes 0-%d/*\r\n\r\n"
                               % (RANGE, RANGE - 1))
            start, total = time.monotonic(), 0
            try:
                while total < RANGE:
                    total += connection.send(bytes(PIECE))
                    self.sent.append((time.monotonic_ns(), total))
                    time.sleep(max(0, start + total / self.rate - time.monotonic()))
            except OSError:
                pass  # the download was ended

    def sent_after(self, moment):
        """Bytes handed to the system after `moment`, or still on their way then."""
        self.thread.join()
        before = max((total for when, total in self.sent if when <= moment), default=0)
        return (self.sent[-1][1] if self.sent else 0) - before


def measure_cancel(bench, table):
    """What a server still gets rid of after a pause or stop, in the middle of a range of 64 MiB."""
    for name, rate in RATES.items():
        most = 0
        for _ in range(bench.rounds):
            for command in ("pause", "stop"):
                server = SlowServer(rate)
                done = subprocess.run([bench.program("varo_cancel"), command, server.url,
                                       os.path.join(bench.home), str(AFTER_MS)],
                                      stdout=subprocess.PIPE, check=True, text=True)
                most = max(most, server.sent_after(int(done.stdout)))
        table.add(f"sent after a pause or stop, server at {name}, most of {2 * bench.rounds}",
                  f"{most / 1024:.0f} KiB", goal=f"at most {SENT_LATER // 1024} KiB",
                  met=most <= SENT_LATER)
