"""The structures and functions of <varo/varo.h> for ctypes."""

import ctypes
from ctypes import CFUNCTYPE, POINTER, Structure, Union, c_char_p, c_double, c_int, c_int64, c_size_t, c_uint64, c_void_p


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


def values(array, count):
    return {entry.name.decode(): entry.python() for entry in array[:count]}


class FailureView(Sized):
    _fields_ = [("size", c_size_t), ("code", c_int), ("http_status", c_int), ("message", c_char_p),
                ("is_worth_retrying", c_int), ("maybe_done", c_int), ("retry_after_ms", c_int64),
                ("service_status", c_int64), ("has_service_status", c_int), ("response_excerpt", c_char_p),
                ("response_excerpt_length", c_size_t), ("request_id", c_char_p), ("begun", c_char_p),
                ("upload", c_char_p),
                ("cause_domain", c_char_p), ("cause_text", c_char_p), ("cause_code", c_int64), ("place", c_char_p)]


class ProgressView(Sized):
    _fields_ = [("size", c_size_t), ("done", c_uint64), ("total", c_uint64), ("bytes_per_second", c_double),
                ("seconds_left", c_int64), ("attempt", c_int)]


class FileView(Sized):
    _fields_ = [("size", c_size_t), ("id", c_char_p), ("name", c_char_p), ("bytes", c_int64),
                ("metadata", POINTER(Entry)), ("metadata_count", c_size_t)]


class RefView(Structure):
    _fields_ = [("table", c_char_p), ("column", c_char_p), ("keys", POINTER(Entry)), ("key_count", c_size_t)]


class BlobView(Sized):
    _fields_ = [("size", c_size_t), ("ref", POINTER(RefView)), ("id", c_char_p), ("status", c_int),
                ("has_file", c_int), ("reason", c_char_p), ("path", c_char_p), ("bytes", c_int64),
                ("failure", POINTER(FailureView))]


CREDENTIALS = CFUNCTYPE(c_int, c_void_p, c_void_p)
FREE = CFUNCTYPE(None, c_void_p)
LOG = CFUNCTYPE(None, c_void_p, c_void_p)
PLACE = CFUNCTYPE(None, c_void_p, c_char_p, c_char_p)
PROGRESS = CFUNCTYPE(None, c_void_p, POINTER(ProgressView))
DONE = CFUNCTYPE(None, c_void_p, c_void_p)
READ = CFUNCTYPE(c_int64, c_void_p, c_void_p, c_size_t)
WRITE = CFUNCTYPE(c_int, c_void_p, c_void_p, c_size_t)
BLOB = CFUNCTYPE(None, c_void_p, POINTER(BlobView))


class Pair(Structure):
    _fields_ = [("name", c_char_p), ("value", c_char_p)]


class Options(Sized):
    _fields_ = [("size", c_size_t), ("url", c_char_p), ("headers", POINTER(Pair)), ("header_count", c_size_t),
                ("ca_file", c_char_p), ("chunk_size", c_uint64), ("parallel", c_int),
                ("connect_timeout_ms", c_int64), ("stall_timeout_ms", c_int64), ("credentials", CREDENTIALS),
                ("user", c_void_p), ("free_user", FREE), ("log", LOG), ("log_level", c_int),
                ("retry_attempts", c_int64), ("retry_first_wait_ms", c_int64), ("retry_longest_wait_ms", c_int64),
                ("retry_longest_retry_after_ms", c_int64), ("retry_budget_ms", c_int64),
                ("proxy", c_char_p), ("proxy_user", c_char_p), ("proxy_password", c_char_p),
                ("proxy_bypass", POINTER(c_char_p)), ("proxy_bypass_count", c_size_t),
                ("proxy_from_environment", c_int), ("minimum_tls", c_int), ("ca_directory", c_char_p),
                ("client_certificate", c_char_p), ("client_key", c_char_p), ("client_key_password", c_char_p),
                ("pinned_keys", POINTER(c_char_p)), ("pinned_key_count", c_size_t), ("bytes_per_second", c_uint64),
                ("user_agent", c_char_p)]


class BlobService(Sized):
    _fields_ = [("size", c_size_t), ("options", POINTER(Options)), ("scope", c_char_p), ("object", c_char_p),
                ("range_size", c_uint64), ("encoding", c_int), ("client_id", c_char_p),
                ("sync_session_id", c_char_p), ("parameters", POINTER(Pair)), ("parameter_count", c_size_t),
                ("parallel_ranges", c_int)]


class UploadOptions(Sized):
    _fields_ = [("size", c_size_t), ("name", c_char_p), ("metadata", POINTER(Entry)), ("metadata_count", c_size_t),
                ("file_namespace", c_char_p), ("security_key", c_char_p), ("chunk_size", c_uint64),
                ("resume", c_char_p), ("on_place", PLACE), ("user", c_void_p)]


class DownloadOptions(Sized):
    _fields_ = [("size", c_size_t), ("if_exists", c_int), ("file_namespace", c_char_p),
                ("security_key", c_char_p), ("range_first", c_uint64), ("range_length", c_uint64)]


# Handles are c_void_p. A function that is not here cannot be called: ctypes would take its pointers for int.
FUNCTIONS = {
    "varo_version": [c_char_p],
    "varo_code_name": [c_char_p, c_int],
    "varo_shut_down": [c_int, c_int64],
    "varo_failure_free": [None, POINTER(FailureView)],
    "varo_credentials_set_token": [c_int, c_void_p, c_char_p],
    "varo_credentials_set_expires": [c_int, c_void_p, c_int64],
    "varo_credentials_refuse": [c_int, c_void_p, c_char_p],
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
    "varo_blobs_open": [c_int, c_char_p, c_char_p, POINTER(BlobService), POINTER(c_void_p),
                        POINTER(POINTER(FailureView))],
    "varo_blobs_free": [None, c_void_p],
    "varo_blobs_fetch": [c_void_p, c_void_p, POINTER(RefView)],
    "varo_blobs_fetch_all": [c_void_p, c_void_p, POINTER(RefView), c_size_t],
    "varo_blobs_of": [c_void_p, c_void_p, c_char_p, c_char_p, POINTER(c_char_p), c_size_t],
    "varo_blobs_state": [c_void_p, c_void_p, POINTER(RefView)],
    "varo_blobs_states": [c_void_p, c_void_p],
    "varo_blobs_path": [c_void_p, c_void_p, POINTER(RefView)],
    "varo_blobs_remove": [c_void_p, c_void_p, POINTER(RefView), c_int],
    "varo_blobs_watch": [c_int, c_void_p, BLOB, c_void_p, POINTER(c_void_p), POINTER(POINTER(FailureView))],
    "varo_watch_release": [None, c_void_p],
    "varo_outcome_blob": [POINTER(BlobView), c_void_p, c_size_t],
    "varo_outcome_blob_refs": [POINTER(RefView), c_void_p],
    "varo_blob_status_name": [c_char_p, c_int],
}
