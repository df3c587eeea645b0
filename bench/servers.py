"""The servers that the transfer figures need: nginx for downloads and objects, discard_server for uploads,
the sandbox for signed objects and for templates."""

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


def _stop(process):
    process.terminate()
    process.wait(timeout=10)


class Nginx:
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
        self._process = subprocess.Popen(
            ["/usr/sbin/nginx", "-p", directory, "-e", "stderr", "-c", config])
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

    def stop(self):
        _stop(self._process)


class Sandbox:
    """The sandbox, as the command line runs it, on free ports of 127.0.0.1."""

    def __init__(self, program, data, *options):
        self._process = subprocess.Popen(
            [program, "--json", "sandbox", "--data", data, *options], stdout=subprocess.PIPE,
            stderr=subprocess.DEVNULL, text=True,
            env={**os.environ, "VARO_SECRET_KEY": "sandbox-secret-key"})
        line = self._process.stdout.readline()
        if not line:
            raise RuntimeError("the sandbox does not start")
        ready = json.loads(line)
        self.template_url = ready["templateUrl"]
        self.store_authority = ready["storeUrl"].removeprefix("http://")
        self.origin = ready["url"].partition("/services/")[0]

    def stop(self):
        _stop(self._process)
        self._process.stdout.close()


class DiscardServer:
    """Takes uploads and throws their bytes away; its records point to `download_domain`."""

    def __init__(self, program, download_domain):
        self._process = subprocess.Popen([program, download_domain], stdout=subprocess.PIPE,
                                         text=True)
        port = self._process.stdout.readline().strip()
        if not port:
            raise RuntimeError("discard_server does not start")
        self.url = f"http://127.0.0.1:{port}"

    def service(self, name):
        return f"{self.url}/services/{name}"

    def received(self):
        """What has come in since this was last asked."""
        with urllib.request.urlopen(self.url + "/received", timeout=10) as answer:
            return json.load(answer)

    def stop(self):
        _stop(self._process)
        self._process.stdout.close()
