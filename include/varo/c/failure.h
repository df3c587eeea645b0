#pragma once

#include "varo/export.h"

#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/// What became of a call or a transfer: what a program decides by. Later versions may have further
/// ones; take one that you do not know for `VARO_OTHER`.
typedef enum varo_code {
  VARO_OK = 0,
  VARO_CANCELLED = 1,         ///< given up: a cancel, or the end of the handle
  VARO_INVALID_ARGUMENT = 2,  ///< a mistake of the caller; the message names the argument
  VARO_NO_CONNECTION = 3,     ///< the server was not found, not reached, or the connection broke
  VARO_TIMEOUT = 4,           ///< no connection, or no byte, for too long
  VARO_TLS = 5,               ///< no secure connection, or a certificate that is not trusted
  VARO_UNAUTHORIZED = 6,      ///< the service wants (other) credentials: 401, 403
  VARO_NOT_FOUND = 7,         ///< no such file, blob, object or address: 404, 410
  VARO_CONFLICT = 8,          ///< what is there forbids it: 409, 412, a file that must not be there
  VARO_THROTTLED = 9,         ///< too many requests: 429
  VARO_SERVER = 10,           ///< the server failed: 5xx, or it refused in a way of its own
  VARO_NOT_OUR_SERVICE = 11,  ///< an answer that the service does not give: a web page, another API
  VARO_INTEGRITY = 12,        ///< the bytes are not those that were asked for, or not all of them
  VARO_LOCAL_FILE = 13,       ///< a file cannot be read, made or written
  VARO_DISK_FULL = 14,        ///< no space, or a quota is used up
  VARO_DATABASE = 15,         ///< the offline database cannot be read or written
  VARO_SHUT_DOWN = 16,        ///< the library was shut down
  VARO_OTHER = 17,            ///< none of these; see `cause_text`
  VARO_NO_MEMORY = 100,       ///< there was no memory to do it, or to say what became of it
  VARO_PENDING = 101,         ///< no failure: a transfer has no outcome yet

  VARO_CODE_HAS_32_BITS = 0x7fffffff
} varo_code;

/// "ok", "cancelled", "notOurService" and so on; "other" for a number that is none of them. Lives
/// as long as the process.
VARO_API const char* varo_code_name(varo_code code);

/// Why something did not succeed. Its texts live as long as it does and are never NULL; they are
/// empty where there is nothing to say.
typedef struct varo_failure {
  size_t size;
  varo_code code;
  /// HTTP status of the answer; 0 where there was none.
  int http_status;
  /// One sentence that names the file, key or address. Never holds a token or a signature.
  const char* message;
  /// Whether the same call may succeed later, and repeating it does no harm.
  int is_worth_retrying;
  /// The request may have been carried out although no answer came.
  int maybe_done;
  /// How long the server wants to be left alone, in milliseconds; -1 where it does not say.
  int64_t retry_after_ms;
  /// The service's own status of the operation, where `has_service_status` is not 0.
  int64_t service_status;
  int has_service_status;
  /// The beginning of the answer's body, at most 1 KiB. May have NULs in it.
  const char* response_excerpt;
  size_t response_excerpt_length;
  /// As the server named the request.
  const char* request_id;
  /// The record that a failed upload has made: to resume it, or to remove it.
  const char* begun;
  /// The upload in parts that a failed put of an object has left behind, to be resumed.
  const char* upload;
  /// What was below: an error as that layer has it. docs/errors.md lists domains and codes.
  const char* cause_domain;
  const char* cause_text;
  int64_t cause_code;
  /// Where a failed upload of a file can go on: for `varo_upload_options::resume`.
  const char* place;
} varo_failure;

/// Frees a failure that a function gave through a `varo_failure**`. NULL is fine.
VARO_API void varo_failure_free(varo_failure* failure);

#ifdef __cplusplus
}
#endif
