"""Files through ctypes against a sandbox: files_test.py LIBRARY VAROBINARY"""

import io
import sys
import threading
import time
import unittest

from sandbox import LIBRARY, Sandbox, varo


class FilesTest(unittest.TestCase):
    def setUp(self):
        self.sandbox = Sandbox("--token-required", "sesame")
        self.addCleanup(self.sandbox.close)
        self.library = varo.Library(LIBRARY)
        self.files = self.library.files(self.sandbox.ready["url"], token="sesame", chunk_size=65536)
        self.addCleanup(self.files.close)

    def test_uploads_lists_downloads_updates_and_removes(self):
        content = bytes(range(256)) * 1000
        path = self.sandbox.path / "photo.jpg"
        path.write_bytes(content)
        metadata = {"owner": "ann's", "kind": 3, "rating": 0.5, "shown": True}
        progress = []
        record = self.files.upload(path, metadata).on_progress(lambda *now: progress.append(now)).result()
        self.assertEqual(record.name, "photo.jpg")
        self.assertEqual(progress[-1], (len(content), len(content)))

        found = self.files.list({"owner": "ann's", "kind": 3}).result()
        self.assertEqual([(file.id, file.bytes) for file in found], [(record.id, len(content))])
        self.assertEqual({name: found[0].metadata[name] for name in metadata}, metadata)
        self.assertEqual(self.files.list({"owner": "bob"}).result(), [])

        copy = self.sandbox.path / "copy.jpg"
        self.assertEqual(self.files.download(record.id, copy).result(), str(copy))
        self.assertEqual(copy.read_bytes(), content)
        pieces = []
        self.assertIsNone(self.files.download(record.id, pieces.append).result())
        self.assertEqual(b"".join(pieces), content)

        self.files.update(record.id, {"owner": "bob"}).result()
        self.assertEqual(self.files.remove_where({"owner": "bob"}).result(), 1)
        with self.assertRaises(varo.Failure):
            self.files.remove(record.id).result()

    def test_sends_bytes_and_what_a_reader_gives(self):
        for source in (b"no\0end", io.BytesIO(b"no\0end")):
            record = self.files.upload(source, name="a").result()
            pieces = []
            self.files.download(record.id, pieces.append).result()
            self.assertEqual(b"".join(pieces), b"no\0end")

    def test_reader_that_fails_is_no_end_of_the_bytes(self):
        closed = io.BytesIO(b"x")
        closed.close()
        for source in (closed, io.StringIO("text, not bytes")):
            with self.assertRaises(varo.Failure):
                self.files.upload(source, name="a").result()
        self.assertEqual(self.files.list().result(), [])

    def test_cancel_ends_what_the_server_holds_up(self):
        self.sandbox.fault({"match": {"path": "/bytes/"}, "action": {"stallAfter": 1, "stallMs": -1}})
        told = []
        done = threading.Event()
        upload = self.files.upload(b"x" * 200_000, name="a")
        upload.on_done(lambda failure: (told.append(failure.code), done.set()))
        self.assertEqual(upload.wait(0), varo.PENDING)
        upload.cancel()
        self.assertEqual(upload.wait(), varo.CANCELLED)
        done.wait()
        self.assertEqual(told, [varo.CANCELLED])
        # One that nobody cares for any more.
        self.files.upload(b"x" * 200_000, name="b").on_done(lambda failure: told.append(failure.code)).release()
        self.assertEqual(told, [varo.CANCELLED] * 2)

    def test_says_what_is_wrong(self):
        cases = [
            (lambda: self.library.files("ftp://host"), "Options::url"),
            (lambda: self.library.files("http://host", parallel=-1), "Options::parallel"),
            (lambda: self.library.files("http://host", proxy="http://proxy", proxy_bypass=["a", "b:80"]),
             "Options::proxy.bypass"),
            (lambda: self.library.files("http://host", pinned_keys=["sha256//short="]), "Options::tls.pinnedKeys"),
            (lambda: self.library.files("http://host", user_agent="a\nb"), "Options::userAgent"),
            (lambda: self.files.upload(b"x").result(), "UploadOptions::name"),
            (lambda: self.files.remove_where({}).result(), "filter is empty"),
        ]
        for call, words in cases:
            with self.assertRaises(varo.Failure) as raised:
                call()
            self.assertEqual(raised.exception.code, varo.INVALID_ARGUMENT)
            self.assertIn(words, str(raised.exception))

    def test_token_may_come_from_a_function(self):
        url = self.sandbox.ready["url"]
        with self.library.files(url, token=lambda: ("sesame", time.time() + 3600)) as files:
            self.assertEqual(files.list().result(), [])
        with self.library.files(url, token=lambda: 1 / 0) as files, self.assertRaises(varo.Failure) as raised:
            files.list().result()
        self.assertIn("division by zero", str(raised.exception))


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1], verbosity=2)
