"""Files and blobs over the C interface, with ctypes: how another language binds to the library.

    with varo.Library("libvarobinary.so").files("https://example.com", token="...") as files:
        record = files.upload("photo.jpg", {"owner": "ann"}).result()
        for found in files.list({"owner": "ann"}).result():
            files.download(found.id, "copy.jpg").result()

What a binding has to take care of:

- A structure says its size first; all else may stay zero.
- ctypes frees a callback with its last reference. A transfer keeps those of its own until it is released, a client
  hands its own over and frees them when the library says so.
- What an outcome points to is gone with its transfer, so it is copied.
- ctypes lets go of the interpreter's lock during a call, so that a wait does not hold up callbacks.
"""

import ctypes
import itertools
from ctypes import POINTER, byref, c_char_p, c_void_p
from dataclasses import dataclass
from pathlib import PurePath

from .c import BLOB, CREDENTIALS, DONE, FREE, FUNCTIONS, PROGRESS, READ, WRITE, BlobService, DownloadOptions, \
    FailureView, Options, RefView, UploadOptions, entries, values

OK, CANCELLED, INVALID_ARGUMENT, NOT_FOUND, PENDING = 0, 1, 2, 7, 101
FOREVER = -1
REPLACE = 1


class Failure(Exception):
    """Why something did not succeed."""

    def __init__(self, view):
        super().__init__(view.message.decode())
        self.code = view.code
        self.http_status = view.http_status or None
        self.is_worth_retrying = bool(view.is_worth_retrying)
        self.begun = view.begun.decode() or None


@dataclass
class File:
    id: str
    name: str
    bytes: int
    metadata: dict


@dataclass
class BlobRef:
    table: str
    column: str
    keys: dict


@dataclass
class Blob:
    ref: BlobRef
    id: str
    status: str
    has_file: bool
    reason: str
    path: str
    bytes: int
    failure: Failure


def text(value):
    return None if value is None else str(value).encode()


class Library:
    """The shared library at `path`. Has to outlive what it makes."""

    def __init__(self, path):
        library = ctypes.CDLL(str(path))
        for name, (result, *arguments) in FUNCTIONS.items():
            function = getattr(library, name)
            function.restype, function.argtypes = result, arguments
            setattr(self, name, function)

    def version(self):
        return self.varo_version().decode()

    def files(self, url, token=None, **options):
        return Files(self, url, token, options)

    def blobs(self, database, files, url, scope, token=None, **options):
        return Blobs(self, database, files, url, scope, token, options)

    def shut_down(self, most_ms=10_000):
        return bool(self.varo_shut_down(most_ms))

    def failure(self, outcome):
        """None, or the failure of an outcome."""
        view = self.varo_outcome_failure(outcome)
        return Failure(view.contents) if view else None

    def file(self, outcome, index):
        view = self.varo_outcome_file(outcome, index).contents
        return File(view.id.decode(), view.name.decode(), view.bytes,
                    values(view.metadata, view.metadata_count))

    def files_of(self, outcome):
        return [self.file(outcome, index) for index in range(self.varo_outcome_count(outcome))]

    def blob(self, view):
        return Blob(ref_from(view.ref.contents), view.id.decode(),
                    self.varo_blob_status_name(view.status).decode(), bool(view.has_file), view.reason.decode(),
                    view.path and view.path.decode(), view.bytes,
                    Failure(view.failure.contents) if view.failure else None)

    def blobs_of(self, outcome):
        return [self.blob(self.varo_outcome_blob(outcome, index).contents)
                for index in range(self.varo_outcome_count(outcome))]

    def path_of(self, outcome):
        path = self.varo_outcome_path(outcome)
        return path.decode() if path is not None else None


# What a client's functions refer to, until the library frees it. By the number that it is given as `user`.
_kept = {}
_numbers = itertools.count(1)


@FREE
def _let_go(user):
    del _kept[user]


class Client:
    """A handle that an application gives back, or that goes with the object."""

    def __init__(self, library, free):
        self.library, self._free, self.handle = library, free, c_void_p()

    def create(self, options, function, *arguments):
        failure = POINTER(FailureView)()
        if function(*arguments, byref(self.handle), byref(failure)) != OK:
            _kept.pop(options.user, None)  # still ours
            try:
                raise Failure(failure.contents)
            finally:
                self.library.varo_failure_free(failure)

    def close(self):
        if self.handle:
            self._free(self.handle)
            self.handle = c_void_p()

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.close()

    __del__ = close


# Options that are lists of texts, and where their lengths stand.
_LISTS = {"proxy_bypass": "proxy_bypass_count", "pinned_keys": "pinned_key_count"}


def set_option(given, name, value):
    """Sets a member of varo_options from a text, a path, a list of texts or a number."""
    if name in _LISTS:
        setattr(given, _LISTS[name], len(value))
        value = (c_char_p * len(value))(*map(text, value))
    elif isinstance(value, (str, PurePath)):
        value = text(value)
    setattr(given, name, value)


def tell_credentials(library, token, credentials):
    """Answers a varo_credentials_fn. No exception may leave it: ctypes would take that for a success."""
    try:
        shown = token() if callable(token) else token
        shown, expires = shown if isinstance(shown, tuple) else (shown, None)
        if expires is not None:
            library.varo_credentials_set_expires(credentials, int(expires * 1000))
        return library.varo_credentials_set_token(credentials, text(shown))
    except Exception as reason:  # pylint: disable=broad-except
        library.varo_credentials_refuse(credentials, text(reason))
        return INVALID_ARGUMENT


def options_with(library, url, token, options):
    """The options of a client. `token` is a text, or a function that gives one, or one and the time in seconds since
    1970 when it expires."""
    given = Options(url=text(url))
    for name, value in options.items():
        set_option(given, name, value)
    if token is None:
        return given
    answer = CREDENTIALS(lambda _, credentials: tell_credentials(library, token, credentials))
    given.credentials, given.user, given.free_user = answer, next(_numbers), _let_go
    _kept[given.user] = answer
    return given


class Transfer:
    """An operation that is under way. Cancelled where it is let go of before its end."""

    def __init__(self, library, handle, read, keep=()):
        self._library, self._handle, self._read, self._keep = library, handle, read, list(keep)

    def on_progress(self, callback):
        shown = PROGRESS(lambda _, view: callback(view.contents.done, view.contents.total))
        self._keep.append(shown)
        self._library.varo_transfer_on_progress(self._handle, shown, None)
        return self

    def on_done(self, callback):
        """Calls it with the failure, or with None."""
        done = DONE(lambda _, outcome: callback(self._library.failure(outcome)))
        self._keep.append(done)
        self._library.varo_transfer_on_done(self._handle, done, None)
        return self

    def cancel(self):
        self._library.varo_transfer_cancel(self._handle)

    def pause(self):
        self._library.varo_transfer_pause(self._handle)

    def resume(self):
        self._library.varo_transfer_resume(self._handle)

    def wait(self, timeout_ms=FOREVER):
        """The code of the outcome, or PENDING."""
        return self._library.varo_transfer_wait(self._handle, timeout_ms)

    def result(self):
        """Waits for the end. Raises a Failure."""
        self.wait()
        outcome = self._library.varo_transfer_outcome(self._handle)
        if failure := self._library.failure(outcome):
            raise failure
        return self._read(outcome)

    def release(self):
        handle, self._handle = self._handle, None
        self._library.varo_transfer_release(handle)
        self._keep.clear()

    def __del__(self):
        if self._handle:
            self.release()


class Files(Client):
    """The files of one service."""

    def __init__(self, library, url, token, options):
        super().__init__(library, library.varo_files_free)
        given = options_with(library, url, token, options)
        self.create(given, library.varo_files_create, given)

    def upload(self, source, metadata=None, name=None):
        """`source`: a path, bytes, or a file that is open for reading bytes."""
        array, count = entries(metadata or {})
        options = UploadOptions(name=text(name), metadata=array, metadata_count=count)
        library, keep = self.library, []
        if isinstance(source, bytes):
            handle = library.varo_files_upload_bytes(self.handle, source, len(source), options)
        elif hasattr(source, "read"):
            keep.append(_reader(source))
            handle = library.varo_files_upload_reader(self.handle, keep[0], None, 2**64 - 1, options)
        else:
            handle = library.varo_files_upload_path(self.handle, text(source), options)
        return Transfer(library, handle, lambda outcome: library.file(outcome, 0), keep)

    def list(self, terms=None):
        library = self.library
        return Transfer(library, library.varo_files_list(self.handle, *entries(terms or {})), library.files_of)

    def download(self, file_id, target, **options):
        """`target`: a path, or a function that takes bytes."""
        library, keep, given = self.library, [], DownloadOptions(**options)
        if callable(target):
            keep.append(_writer(target))
            handle = library.varo_files_download_sink(self.handle, text(file_id), keep[0], None, given)
        else:
            handle = library.varo_files_download_path(self.handle, text(file_id), text(target), given)
        return Transfer(library, handle, library.path_of, keep)

    def update(self, file_id, metadata):
        library = self.library
        handle = library.varo_files_update(self.handle, text(file_id), *entries(metadata))
        return Transfer(library, handle, lambda outcome: library.file(outcome, 0))

    def remove(self, file_id):
        library = self.library
        return Transfer(library, library.varo_files_remove(self.handle, text(file_id)), library.varo_outcome_number)

    def remove_where(self, terms):
        library = self.library
        handle = library.varo_files_remove_where(self.handle, *entries(terms))
        return Transfer(library, handle, library.varo_outcome_number)


def ref_from(view):
    return BlobRef(view.table.decode(), view.column.decode(), values(view.keys, view.key_count))


def views_of(refs):
    array = (RefView * max(len(refs), 1))()
    for view, ref in zip(array, refs):
        view.table, view.column = text(ref.table), text(ref.column)
        view.keys, view.key_count = entries(ref.keys)
    return array


class Watch:
    """Has a function told of blobs that change, until it is released."""

    def __init__(self, library, handle, callback):
        self._library, self._handle, self._callback = library, handle, callback

    def release(self):
        handle, self._handle = self._handle, None
        self._library.varo_watch_release(handle)

    __del__ = release


class Blobs(Client):
    """The blobs of one offline database."""

    def __init__(self, library, database, files, url, scope, token, options):
        super().__init__(library, library.varo_blobs_free)
        given = options_with(library, url, token, options)
        service = BlobService(options=ctypes.pointer(given), scope=text(scope))
        self.create(given, library.varo_blobs_open, text(database), text(files), service)

    def of(self, table, column, keys):
        """The blobs of all records of a table; `keys` are the columns that tell them apart."""
        def read(outcome):
            views = self.library.varo_outcome_blob_refs(outcome)
            return [ref_from(views[index]) for index in range(self.library.varo_outcome_count(outcome))]
        names = (c_char_p * len(keys))(*map(text, keys))
        return self._answer(self.library.varo_blobs_of(self.handle, text(table), text(column), names, len(keys)), read)

    def fetch(self, ref):
        return Transfer(self.library, self.library.varo_blobs_fetch(self.handle, views_of([ref])), self.library.path_of)

    def fetch_all(self, refs):
        handle = self.library.varo_blobs_fetch_all(self.handle, views_of(refs), len(refs))
        return Transfer(self.library, handle, self.library.blobs_of)

    def state(self, ref):
        return self._answer(self.library.varo_blobs_state(self.handle, views_of([ref])), self.library.blobs_of)[0]

    def states(self):
        return self._answer(self.library.varo_blobs_states(self.handle), self.library.blobs_of)

    def path(self, ref):
        return self._answer(self.library.varo_blobs_path(self.handle, views_of([ref])), self.library.path_of)

    def remove(self, ref, now=False):
        outcome = self.library.varo_blobs_remove(self.handle, views_of([ref]), int(now))
        return self._answer(outcome, self.library.blobs_of)[0]

    def watch(self, callback):
        told = BLOB(lambda _, view: callback(self.library.blob(view.contents)))
        watch, failure = c_void_p(), POINTER(FailureView)()
        if self.library.varo_blobs_watch(self.handle, told, None, byref(watch), byref(failure)) != OK:
            try:
                raise Failure(failure.contents)
            finally:
                self.library.varo_failure_free(failure)
        return Watch(self.library, watch, told)

    def _answer(self, outcome, read):
        try:
            if failure := self.library.failure(outcome):
                raise failure
            return read(outcome)
        finally:
            self.library.varo_outcome_free(outcome)


def _reader(source):
    def read(_, buffer, length):
        try:
            piece = bytes(source.read(length))
        except Exception:  # none may leave: the library would take it for the end of the bytes
            return -1
        ctypes.memmove(buffer, piece, min(len(piece), length))
        return len(piece)
    return READ(read)


def _writer(take):
    def write(_, piece, length):
        try:
            take(ctypes.string_at(piece, length))
        except Exception:  # none may leave: C would go on as if there had been none
            return 1
        return 0
    return WRITE(write)
