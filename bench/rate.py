"""The part of measure.py about rate limits: how precise and how even they are."""

import socket
import subprocess
import threading

PIECE = 256 * 1024
RATES = {"1 MB/s": 1_000_000, "10 MB/s": 10_000_000}
SECONDS = 10
LARGEST_ERROR = 0.05


class EndlessServer:
    """Gives each GET bytes without an end, and takes those of each PUT."""

    def __init__(self):
        self.listener = socket.create_server(("127.0.0.1", 0))
        self.url = f"http://127.0.0.1:{self.listener.getsockname()[1]}/"
        threading.Thread(target=self.accept, daemon=True).start()

    def accept(self):
        while True:
            try:
                connection, _ = self.listener.accept()
            except OSError:
                return  # closed
            threading.Thread(target=self.serve, args=(connection,), daemon=True).start()

    @staticmethod
    def serve(connection):
        with connection:
            try:
                if connection.recv(65536).startswith(b"GET"):
                    connection.sendall(b"HTTP/1.1 200 OK\r\nContent-Length: %d\r\n\r\n" % (1 << 40))
                    while True:
                        connection.sendall(bytes(PIECE))
                while connection.recv(PIECE):
                    pass
            except OSError:
                pass  # the client is gone

    def stop(self):
        self.listener.close()


def measure_rate(bench, table):
    """What transfers under one limit move in ten seconds, beside what it allows."""
    server = EndlessServer()
    seconds = bench.size(SECONDS, 1)
    for direction in ("download", "upload"):
        for name, rate in RATES.items():
            for transfers in (1, 4):
                done = subprocess.run([bench.program("varo_rate"), direction, server.url, str(rate),
                                       str(transfers), str(seconds)],
                                      stdout=subprocess.PIPE, check=True, text=True)
                moved = [int(count) for count in done.stdout.split()]
                share = sum(moved) / (rate * seconds)
                fewest = f", fewest {min(moved) / sum(moved):.2f}" if transfers > 1 else ""
                table.add(f"{direction} at {name}, {transfers} at once{fewest}",
                          f"{sum(moved) / seconds / 1e6:.3f} MB/s", name, f"{share:.3f}",
                          f"within {LARGEST_ERROR:.2f}", abs(share - 1) <= LARGEST_ERROR)
    server.stop()
