"""Blobs through ctypes against a sandbox: blobs_test.py LIBRARY VAROBINARY"""

import pathlib
import sys
import unittest

from sandbox import LIBRARY, Sandbox, varo


class BlobsTest(unittest.TestCase):
    def setUp(self):
        self.sandbox = Sandbox("--example-db", "{}/staff.db")
        self.addCleanup(self.sandbox.close)
        files = self.sandbox.path / "photos"
        files.mkdir()
        self.library = varo.Library(LIBRARY)
        self.blobs = self.library.blobs(self.sandbox.path / "staff.db", files, self.sandbox.ready["blobUrl"], "HR")
        self.addCleanup(self.blobs.close)

    def test_fetches_watches_and_removes(self):
        told = []
        watch = self.blobs.watch(lambda blob: told.append(blob.status))
        photos = self.blobs.of("employees", "photo", ["id"])
        self.assertEqual([photo.keys["id"] for photo in photos], [1, 2, 3, 4, 5, 6, 7])
        # The last two are served in a way of their own, or not at all.
        states = self.blobs.fetch_all([photos[0], photos[1], photos[6]]).result()
        self.assertEqual([state.status for state in states], ["available", "available", "failed"])
        self.assertEqual([state.bytes for state in states[:2]], [300_000, 2_500_000])
        self.assertIn("employees", str(states[2].failure))
        self.assertEqual(states[2].ref, photos[6])
        self.assertEqual(pathlib.Path(states[0].path).stat().st_size, 300_000)
        self.assertEqual(self.blobs.path(photos[0]), states[0].path)
        self.assertEqual(self.blobs.fetch(photos[0]).result(), states[0].path)
        self.assertEqual(len(self.blobs.states()), 3)
        self.assertEqual(self.blobs.remove(photos[0]).status, "deletionWaits")
        watch.release()
        self.assertIn("fetching", told)
        self.assertIn("available", told)

    def test_cancelled_fetch_keeps_what_it_has(self):
        self.sandbox.fault({"match": {"path": "/binary", "skip": 1}, "action": {"stallAfter": 1, "stallMs": -1}})
        photo = self.blobs.of("employees", "photo", ["id"])[1]
        fetch = self.blobs.fetch(photo)
        fetch.cancel()
        self.assertEqual(fetch.wait(), varo.CANCELLED)
        self.assertIn(self.blobs.state(photo).status, ("notFetched", "paused"))

    def test_says_what_is_wrong(self):
        with self.assertRaises(varo.Failure) as raised:
            self.library.blobs("none.db", self.sandbox.path, self.sandbox.ready["blobUrl"], "HR")
        self.assertIn("none.db", str(raised.exception))
        nobody = varo.BlobRef("employees", "photo", {"id": 99})
        for call in (self.blobs.path, self.blobs.state, lambda ref: self.blobs.fetch(ref).result()):
            with self.assertRaises(varo.Failure) as raised:
                call(nobody)
            self.assertEqual(raised.exception.code, varo.NOT_FOUND)


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1], verbosity=2)
