"""Files over the C interface, with ctypes: how another language binds to the library.

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
from ctypes import CFUNCTYPE, POINTER, Structure, Union, byref, c_char_p, c_double, c_int, c_int64, c_size_t, \
    c_uint64, c_void_p
from dataclasses import dataclass

OK, CANCELLED, INVALID_ARGUMENT, PENDING = 0, 1, 2, 101
FOREVER = -1
REPLACE = 1


class Sized(Structure):
    """A structure whose first member is its size."""

    def __init__(self, **members):
        super().__init__(size=ctypes.sizeof(type(self)), **members)


class _Value(Union):
    _fields_ = [("boolean", c_int), ("integer", c_int64), ("number", c_double), ("text", c_char_p)]


class Entry(Structure):
    _anonymous_ = ["value"]
    _fields_ = [("name", c_char_p), ("type", c_int), ("value", _Value), ("text_length", c_size_t)]

    def python(self):
        if self.type == 4:
            return ctypes.string_at(_address(self, "value"), self.text_length).decode()
        return {1: bool(self.boolean), 2: self.integer, 3: self.number}[self.type]


def _address(structure, pointer):
    """Where a pointer among the members points; c_char_p would stop at the first NUL."""
    at = ctypes.addressof(structure) + getattr(type(structure), pointer).offset
    return c_void_p.from_address(at).value


def entries(values):
    """An array of entries, and how many they are."""
    array = (Entry * max(len(values), 1))()
    for entry, (name, value) in zip(array, values.items()):
        entry.name = name.encode()
        if isinstance(value, bool):
            entry.type, entry.boolean = 1, value
        elif isinstance(value, int):
            entry.type, entry.integer = 2, value
        elif isinstance(value, float):
            entry.type, entry.number = 3, value
        else:
            entry.type, entry.text = 4, value.encode()
    return array, len(values)


class FailureView(Sized):
    _fields_ = [("size", c_size_t), ("code", c_int), ("http_status", c_int), ("message", c_char_p),
                ("is_worth_retrying", c_int), ("maybe_done", c_int), ("retry_after_ms", c_int64),
                ("service_status", c_int64), ("has_service_status", c_int), ("response_excerpt", c_char_p),
                ("response_excerpt_length", c_size_t), ("request_id", c_char_p), ("begun", c_char_p),
                ("cause_domain", c_char_p), ("cause_text", c_char_p), ("cause_code", c_int64)]


class Failure(Exception):
    """Why something did not succeed."""

    def __init__(self, view):
        super().__init__(view.message.decode())
        self.code = view.code
        self.http_status = view.http_status or None
        self.is_worth_retrying = bool(view.is_worth_retrying)
        self.begun = view.begun.decode() or None


class ProgressView(Sized):
    _fields_ = [("size", c_size_t), ("done", c_uint64), ("total", c_uint64), ("bytes_per_second", c_double),
                ("seconds_left", c_int64), ("attempt", c_int)]


class FileView(Sized):
    _fields_ = [("size", c_size_t), ("id", c_char_p), ("name", c_char_p), ("bytes", c_int64),
                ("metadata", POINTER(Entry)), ("metadata_count", c_size_t)]


@dataclass
class File:
    id: str
    name: str
    bytes: int
    metadata: dict


CREDENTIALS = CFUNCTYPE(c_int, c_void_p, c_void_p)
FREE = CFUNCTYPE(None, c_void_p)
PROGRESS = CFUNCTYPE(None, c_void_p, POINTER(ProgressView))
DONE = CFUNCTYPE(None, c_void_p, c_void_p)
READ = CFUNCTYPE(c_int64, c_void_p, c_void_p, c_size_t)
WRITE = CFUNCTYPE(c_int, c_void_p, c_void_p, c_size_t)


class Pair(Structure):
    _fields_ = [("name", c_char_p), ("value", c_char_p)]


class Options(Sized):
    _fields_ = [("size", c_size_t), ("url", c_char_p), ("headers", POINTER(Pair)), ("header_count", c_size_t),
                ("ca_file", c_char_p), ("chunk_size", c_uint64), ("parallel", c_int),
                ("connect_timeout_ms", c_int64), ("stall_timeout_ms", c_int64), ("credentials", CREDENTIALS),
                ("user", c_void_p), ("free_user", FREE)]


class UploadOptions(Sized):
    _fields_ = [("size", c_size_t), ("name", c_char_p), ("metadata", POINTER(Entry)), ("metadata_count", c_size_t),
                ("file_namespace", c_char_p), ("security_key", c_char_p), ("chunk_size", c_uint64)]


class DownloadOptions(Sized):
    _fields_ = [("size", c_size_t), ("if_exists", c_int), ("file_namespace", c_char_p),
                ("security_key", c_char_p)]


# Handles are c_void_p. A function that is not here cannot be called: ctypes would take its pointers for int.
FUNCTIONS = {
    "varo_version": [c_char_p],
    "varo_code_name": [c_char_p, c_int],
    "varo_shut_down": [c_int, c_int64],
    "varo_failure_free": [None, POINTER(FailureView)],
    "varo_credentials_set_token": [c_int, c_void_p, c_char_p],
    "varo_files_create": [c_int, POINTER(Options), POINTER(c_void_p), POINTER(POINTER(FailureView))],
    "varo_files_free": [None, c_void_p],
    "varo_files_upload_path": [c_void_p, c_void_p, c_char_p, POINTER(UploadOptions)],
    "varo_files_upload_bytes": [c_void_p, c_void_p, c_char_p, c_size_t, POINTER(UploadOptions)],
    "varo_files_upload_reader": [c_void_p, c_void_p, READ, c_void_p, c_uint64, POINTER(UploadOptions)],
    "varo_files_download_path": [c_void_p, c_void_p, c_char_p, c_char_p, POINTER(DownloadOptions)],
    "varo_files_download_sink": [c_void_p, c_void_p, c_char_p, WRITE, c_void_p, POINTER(DownloadOptions)],
    "varo_files_list": [c_void_p, c_void_p, POINTER(Entry), c_size_t],
    "varo_files_update": [c_void_p, c_void_p, c_char_p, POINTER(Entry), c_size_t],
    "varo_files_remove": [c_void_p, c_void_p, c_char_p],
    "varo_files_remove_where": [c_void_p, c_void_p, POINTER(Entry), c_size_t],
    "varo_transfer_on_progress": [c_int, c_void_p, PROGRESS, c_void_p],
    "varo_transfer_on_done": [c_int, c_void_p, DONE, c_void_p],
    "varo_transfer_cancel": [c_int, c_void_p],
    "varo_transfer_pause": [c_int, c_void_p],
    "varo_transfer_resume": [c_int, c_void_p],
    "varo_transfer_state": [c_int, c_void_p],
    "varo_transfer_wait": [c_int, c_void_p, c_int64],
    "varo_transfer_outcome": [c_void_p, c_void_p],
    "varo_transfer_release": [None, c_void_p],
    "varo_outcome_code": [c_int, c_void_p],
    "varo_outcome_failure": [POINTER(FailureView), c_void_p],
    "varo_outcome_count": [c_size_t, c_void_p],
    "varo_outcome_path": [c_char_p, c_void_p],
    "varo_outcome_number": [c_uint64, c_void_p],
    "varo_outcome_free": [None, c_void_p],
    "varo_outcome_file": [POINTER(FileView), c_void_p, c_size_t],
}


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

    def shut_down(self, most_ms=10_000):
        return bool(self.varo_shut_down(most_ms))

    def failure(self, outcome):
        """None, or the failure of an outcome."""
        view = self.varo_outcome_failure(outcome)
        return Failure(view.contents) if view else None

    def file(self, outcome, index):
        view = self.varo_outcome_file(outcome, index).contents
        metadata = {entry.name.decode(): entry.python() for entry in view.metadata[:view.metadata_count]}
        return File(view.id.decode(), view.name.decode(), view.bytes, metadata)

    def files_of(self, outcome):
        return [self.file(outcome, index) for index in range(self.varo_outcome_count(outcome))]

    def path_of(self, outcome):
        path = self.varo_outcome_path(outcome)
        return path.decode() if path is not None else None


# What a client's functions refer to, until the library frees it. By the number that it is given as `user`.
_kept = {}


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


def options_with(library, url, token, options):
    """The options of a client."""
    given = Options(url=text(url), **options)
    if token is None:
        return given
    answer = CREDENTIALS(lambda _, credentials: library.varo_credentials_set_token(credentials, text(token)))
    given.credentials, given.user, given.free_user = answer, max(_kept, default=0) + 1, _let_go
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


def _reader(source):
    def read(_, buffer, length):
        try:
            piece = source.read(length)
        except OSError:
            return -1
        ctypes.memmove(buffer, piece, len(piece))
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
