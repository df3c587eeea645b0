"""The figures of object stores: one large object, signed, to and from the sandbox's store, which checks
the signature and the digest, and nginx, which checks neither."""

import contextlib
import filecmp
import functools
import os
import urllib.request

from harness import MIB
from servers import Nginx, Sandbox

SIZE = 256 * MIB
BOTO3 = "/usr/lib/python3/dist-packages/boto3"
RANGE = MIB
OBJECT = "bucket/object"
# Of the sandbox, unless it is told otherwise.
SIGNING = ["--aws-sigv4", "aws:amz:us-east-1:s3", "-u", "sandbox:sandbox-secret-key"]
EMPTY_DIGEST = "e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855"
# curl signs a digest that it is given. To have one is part of an upload.
UPLOAD_WITH_DIGEST = """
digest=$(openssl dgst -sha256 -r "$1") && file=$1 && url=$2 && shift 2 &&
exec curl -sf -o /dev/null -H "x-amz-content-sha256: ${digest%% *}" "$@" -T "$file" "$url"
"""


class Store:
    """Who moves the object to and from `authority`, and that it got there. `path` is where the store keeps
    it, if that is known."""

    def __init__(self, bench, size, authority, template_url, path=None):
        self.bench, self.size, self.path = bench, size, path
        self.authority, self.template_url = authority, template_url
        self.url = f"http://{authority}/{OBJECT}"
        self.source = bench.file(size)
        self.stored = os.path.join(bench.home, "Documents", "downloads")
        os.makedirs(self.stored, exist_ok=True)

    def downloads(self):
        return [entry.path for entry in os.scandir(self.stored)]

    def clear(self):
        # Removed just before, so that each program writes to memory that was in use until now: a
        # virtual machine may take longer over memory that has been free for a while.
        for path in self.downloads():
            os.remove(path)

    def our_upload(self):
        return self.upload(self.bench.program("varo_put"), self.template_url, self.source, OBJECT)

    def curl_upload(self):
        return self.upload("sh", "-c", UPLOAD_WITH_DIGEST, "sh", self.source, self.url, *SIGNING)

    def upload(self, *command):
        self.clear()  # so that no more than three files of this size lie on the disk
        if self.path is not None:  # nginx says 204 where it replaces one, no answer of a store
            with contextlib.suppress(FileNotFoundError):
                os.remove(self.path)
        return self.bench.run(*command)

    def our_download(self):
        return self.download(self.bench.program("varo_get"), f"http://{self.authority}",
                             *OBJECT.split("/"), os.path.join(self.stored, "ours"))

    def curl_download(self):
        return self.download("curl", "-sf", "-o", os.path.join(self.stored, "curl"), *SIGNING,
                             "-H", f"x-amz-content-sha256: {EMPTY_DIGEST}", self.url)

    def bare_download(self):
        """The same ranges with libcurl alone, which signs nothing."""
        return self.download(self.bench.program("bare_ranges"), self.url, str(RANGE), str(RANGE),
                             os.path.join(self.stored, "bare"))

    def boto3(self, direction, path):
        # The distribution's interpreter: another one on the path may not have it.
        script = os.path.join(os.path.dirname(os.path.abspath(__file__)), "boto3_object.py")
        return ["/usr/bin/python3", "-I", "-B", script, direction, f"http://{self.authority}",
                *OBJECT.split("/"), path]

    def boto3_upload(self):
        return self.upload(*self.boto3("upload", self.source))

    def boto3_download(self):
        return self.download(*self.boto3("download", os.path.join(self.stored, "boto3")))

    def download(self, *command):
        self.clear()
        used = self.bench.run(*command)
        sizes = [os.path.getsize(path) for path in self.downloads()]
        if sizes != [self.size]:
            raise RuntimeError(f"{command[0]} stored files of {sizes} bytes")
        return used

    def check_bytes(self, who):
        (path,) = self.downloads()
        if not filecmp.cmp(self.source, path, shallow=False):
            raise RuntimeError(f"{who} moved other bytes")


def measure_store(store, object_size):
    """Rounds of all, after each program's upload has been downloaded by another."""
    # Only nginx serves what is not signed, and it knows no uploads in parts.
    boto3 = store.path is None and store.bench.installed("boto3", True, BOTO3)
    pairs = [(store.our_upload, store.curl_download), (store.curl_upload, store.our_download)]
    for up, down in pairs + [(store.boto3_upload, store.boto3_download)] * bool(boto3):
        up()
        down()
        store.check_bytes(f"{up.__name__} or {down.__name__}")

    def upload(side):
        used = side()
        if object_size() != store.size:
            raise RuntimeError(f"{side.__name__} left {object_size()} bytes in the store")
        return used

    # Uploads first: downloads leave the object where it is.
    uploads = store.bench.interleave({
        "ours": functools.partial(upload, store.our_upload),
        "curl": functools.partial(upload, store.curl_upload),
        "boto3": functools.partial(upload, store.boto3_upload) if boto3 else None})
    downloads = store.bench.interleave({
        "ours": store.our_download,
        "curl": store.curl_download,
        "boto3": store.boto3_download if boto3 else None,
        "bare": store.bare_download if store.path else None})
    return {"upload": uploads, "download": downloads}


def add(table, name, measured, most_curl, most_bare):
    """`most_curl` and `most_bare` are goals of the download's time."""
    for direction, used in measured.items():
        figure = f"signed {direction} of 256 MiB, {name}"
        is_download = direction == "download"
        table.compare_runs(f"{figure}, beside curl", used["ours"], used["curl"],
                           most_curl if is_download else None)
        for other, beside, most in (("boto3", "boto3", None), ("bare", "the bare loop", most_bare)):
            if used.get(other):
                table.compare_runs(f"{figure}, beside {beside}", used["ours"], used[other], most)
        table.add_peak(figure, used["ours"], 32)


def measure_objects(bench, table):
    """One object to and from the sandbox's store, then nginx."""
    size = bench.size(SIZE, 2 * MIB)
    with Sandbox(bench.varobinary, os.path.join(bench.directory, "sandbox")) as sandbox:
        def object_size():
            # The service gives the store's objects to everybody.
            request = urllib.request.Request(f"{sandbox.origin}/services/online/objects/{OBJECT}",
                                             headers={"Range": "bytes=0-0"})
            with urllib.request.urlopen(request, timeout=10) as answer:
                return int(answer.headers["Content-Range"].rpartition("/")[2])

        measured = measure_store(
            Store(bench, size, sandbox.store_authority, sandbox.template_url), object_size)
        add(table, "sandbox's store", measured, None, None)
    root = os.path.join(bench.directory, "nginx-store")
    path = os.path.join(root, OBJECT)
    os.makedirs(root)
    # The sandbox only hands out the templates.
    with Nginx(root, bench.directory) as nginx, \
            Sandbox(bench.varobinary, os.path.join(bench.directory, "templates"),
                    "--object-store", nginx.url, "--access-key", "sandbox") as sandbox:
        authority = nginx.url.removeprefix("http://")
        measured = measure_store(
            Store(bench, size, authority, sandbox.template_url, path),
            lambda: os.path.getsize(path))
        add(table, "nginx", measured, 0.80, 1.10)
