"""The servers that the transfer figures need: nginx for downloads and objects, discard_server for uploads,
the sandbox for signed objects and for templates; and the line with a long way to one of them."""

import json
import os
import socket
import subprocess
import time
import urllib.request

NGINX_CONFIG = """
worker_processes 1;
daemon off;
pid {directory}/nginx.pid;
error_log stderr warn;
{user}
events {{ worker_connections 512; }}
http {{
  access_log off;
  sendfile on;
  tcp_nopush on;
  client_body_temp_path {directory}/body;
  proxy_temp_path {directory}/proxy;
  fastcgi_temp_path {directory}/fastcgi;
  uwsgi_temp_path {directory}/uwsgi;
  scgi_temp_path {directory}/scgi;
  server {{
    listen 127.0.0.1:{port};
    root {root};
    keepalive_requests 1000000;
    client_max_body_size 0;
    # Objects of any name. Nothing is checked, and what was there is replaced.
    location /bucket/ {{ dav_methods PUT; create_full_put_path on; }}
    # The object of every record of a table is the file of the table's name.
    location ~ ^/blobs/([^/]+)/binary$ {{ alias {root}/$1; }}
    # For who names what it stores by the end of the address.
    location ~ ^/copies/([^/]+)/[0-9]+$ {{ alias {root}/$1; }}
  }}
}}
"""


class _Server:
    """A process that runs until the end of a `with`."""

    def __init__(self, command, **options):
        self._process = subprocess.Popen(command, **options)

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self._process.terminate()
        self._process.wait(timeout=10)
        if self._process.stdout:
            self._process.stdout.close()

    def _first_line(self):
        line = self._process.stdout.readline().strip()
        if not line:
            raise RuntimeError(f"{self._process.args[0]} does not start")
        return line


class Nginx(_Server):
    """Serves the files of `root` on a free port of 127.0.0.1, from the page cache with sendfile."""

    def __init__(self, root, directory):
        with socket.socket() as probe:
            probe.bind(("127.0.0.1", 0))
            self.port = probe.getsockname()[1]
        config = os.path.join(directory, "nginx.conf")
        # A worker of root's nginx would drop to a user who may not read the temporary directory.
        user = "user root;" if os.geteuid() == 0 else ""
        with open(config, "w", encoding="utf-8") as out:
            out.write(NGINX_CONFIG.format(directory=directory, root=root, port=self.port,
                                          user=user))
        super().__init__(["/usr/sbin/nginx", "-p", directory, "-e", "stderr", "-c", config])
        self.url = f"http://127.0.0.1:{self.port}"
        self._await()

    def _await(self):
        for _ in range(200):
            if self._process.poll() is not None:
                raise RuntimeError("nginx does not start")
            try:
                socket.create_connection(("127.0.0.1", self.port), timeout=1).close()
                return
            except OSError:
                time.sleep(0.02)
        raise RuntimeError("nginx does not listen")


class Sandbox(_Server):
    """The sandbox, as the command line runs it, on free ports of 127.0.0.1."""

    def __init__(self, program, data, *options):
        super().__init__(
            [program, "--json", "sandbox", "--data", data, *options], stdout=subprocess.PIPE,
            stderr=subprocess.DEVNULL, text=True,
            env={**os.environ, "VARO_SECRET_KEY": "sandbox-secret-key"})
        ready = json.loads(self._first_line())
        self.template_url = ready["templateUrl"]
        self.store_authority = ready["storeUrl"].removeprefix("http://")
        self.origin = ready["url"].partition("/services/")[0]


class Line(_Server):
    """A line of `delay_ms` each way to the server at `port` of 127.0.0.1."""

    def __init__(self, program, port, delay_ms, bytes_per_second=0, window=0):
        super().__init__([program, str(port), str(delay_ms), str(bytes_per_second), str(window)],
                         stdout=subprocess.PIPE, text=True)
        self.authority = f"127.0.0.1:{self._first_line()}"
        self.url = f"http://{self.authority}"


class DiscardServer(_Server):
    """Takes uploads and throws their bytes away; its records point to `download_domain`."""

    def __init__(self, program, download_domain):
        super().__init__([program, download_domain], stdout=subprocess.PIPE, text=True)
        self.port = int(self._first_line())
        self.url = f"http://127.0.0.1:{self.port}"

    def service(self, name):
        return f"{self.url}/services/{name}"

    def received(self):
        """What has come in since this was last asked."""
        with urllib.request.urlopen(self.url + "/received", timeout=10) as answer:
            return json.load(answer)
