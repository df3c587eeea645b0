#pragma once

#include "varo/c/failure.h"
#include "varo/c/values.h"

#ifdef __cplusplus
extern "C" {
#endif

/// What a client shows to its server. Filled by a `varo_credentials_fn`, and there during its
/// call.
typedef struct varo_credentials varo_credentials;

/// The service's token, sent to the service's own servers only.
VARO_API varo_code varo_credentials_set_token(varo_credentials* credentials, const char* token);
/// What the requests to an object store are signed with. `session_token` goes with keys that are
/// good for a while; NULL for none.
VARO_API varo_code varo_credentials_set_keys(varo_credentials* credentials, const char* access_key,
                                             const char* secret_key, const char* session_token);
/// When they expire, in milliseconds since 1970-01-01 UTC. With it they are kept for all operations
/// of the client until shortly before; without, they serve one operation.
VARO_API varo_code varo_credentials_set_expires(varo_credentials* credentials, int64_t unix_ms);
/// Why there are none; goes into the failure's message. For a function that does not return 0.
VARO_API varo_code varo_credentials_refuse(varo_credentials* credentials, const char* why);

/// Asked when an operation begins, before a request that comes after the credentials have expired,
/// and once more where a server turns them away. On threads of the library, one at a time: others
/// wait for the same answer, and an operation of the same client that is begun in it fails. Returns
/// 0; anything else fails the operation with `VARO_UNAUTHORIZED`.
typedef int (*varo_credentials_fn)(void* user, varo_credentials* credentials);

/// Frees what `user` points to.
typedef void (*varo_free_fn)(void* user);

typedef enum varo_log_level {
  VARO_LOG_DEFAULT = 0,  ///< warnings and what is worse
  VARO_LOG_TRACE = 1,
  VARO_LOG_DEBUG = 2,
  VARO_LOG_INFO = 3,
  VARO_LOG_WARNING = 4,
  VARO_LOG_ERROR = 5,
  VARO_LOG_FATAL = 6,

  VARO_LOG_LEVEL_HAS_32_BITS = 0x7fffffff
} varo_log_level;

/// One message of the library. Never holds a token, a key or a signature.
typedef struct varo_log_record {
  size_t size;
  varo_log_level level;
  /// Where in the library.
  int line;
  const char* file;
  const char* message;
  /// The part of the library: "Binary", "TaskEngine", ...
  const char* logger;
} varo_log_record;

typedef enum varo_tls_version {
  VARO_TLS_DEFAULT = 0,  ///< 1.2
  VARO_TLS_1_2 = 1,
  VARO_TLS_1_3 = 2,

  VARO_TLS_VERSION_HAS_32_BITS = 0x7fffffff
} varo_tls_version;

/// `record` is there during the call. Called on threads of the library, several at once, in the
/// middle of their work: it has to be quick.
typedef void (*varo_log_fn)(void* user, const varo_log_record* record);

/// What an operation does, by the function that began it. Later versions may have further ones.
typedef enum varo_operation_kind {
  VARO_FILE_LIST = 0,
  VARO_FILE_UPLOAD = 1,
  VARO_FILE_DOWNLOAD = 2,
  VARO_FILE_UPDATE = 3,
  VARO_FILE_REMOVE = 4,
  VARO_FILE_REMOVE_WHERE = 5,
  VARO_BLOB_FETCH = 6,
  VARO_OBJECT_PUT = 7,
  VARO_OBJECT_GET = 8,
  VARO_OBJECT_HEAD = 9,
  VARO_OBJECT_LIST = 10,
  VARO_OBJECT_REMOVE = 11,

  VARO_OPERATION_KIND_HAS_32_BITS = 0x7fffffff
} varo_operation_kind;

/// "fileList", "fileUpload" and so on; "other" for a number that is none of them. Lives as long as
/// the process.
VARO_API const char* varo_operation_kind_name(varo_operation_kind kind);

/// One request that has ended: each time that it goes to the server is one. Never holds a header, a
/// token or a signature. Times are in microseconds, -1 where they are not known.
typedef struct varo_request_event {
  size_t size;
  /// `varo_operation_event::id` of the operation that sent it.
  uint64_t operation;
  varo_operation_kind kind;
  /// 1, and one more each time that the same request is sent again.
  int attempt;
  /// Of the response; 0 where there was none.
  int http_status;
  /// Why there was no response, or what a status from 400 on says; `VARO_OK` for all others.
  varo_code error;
  /// "GET", "PUT", ...
  const char* method;
  /// Without user, password and fragment, and of its query the names alone.
  const char* url;
  /// Bytes of bodies, as they went over the line.
  uint64_t bytes_sent;
  uint64_t bytes_received;
  /// When it was sent, in microseconds since 1970-01-01 UTC.
  int64_t begun_us;
  /// How long it waited for one of the connections.
  int64_t queue_us;
  /// How long it took to connect; -1 where a kept connection served.
  int64_t connect_us;
  /// From the beginning to the first byte of the response, and to the end.
  int64_t first_byte_us;
  int64_t total_us;
} varo_request_event;

/// One operation that has ended.
typedef struct varo_operation_event {
  size_t size;
  /// Unique in the process; never 0.
  uint64_t id;
  varo_operation_kind kind;
  /// `VARO_OK`, or what kind of failure it was.
  varo_code outcome;
  /// Requests that it sent: as many as there were events of them.
  uint64_t attempts;
  /// Bytes of the transfer that were done, and sums over its requests.
  uint64_t bytes_done;
  uint64_t bytes_sent;
  uint64_t bytes_received;
  /// When it was asked for, in microseconds since 1970-01-01 UTC, and how long it took.
  int64_t begun_us;
  int64_t duration_us;
} varo_operation_event;

/// The event is there during the call. Called on threads of the library with no lock held, several
/// at once; the events of one operation one after the other, that of the operation last. In the
/// middle of the work: they have to be quick, and must not wait for a transfer.
typedef void (*varo_request_fn)(void* user, const varo_request_event* event);
typedef void (*varo_operation_fn)(void* user, const varo_operation_event* event);

/// The settings of one client. Clients with other settings can live side by side.
typedef struct varo_options {
  size_t size;
  /// Where the service is: http or https, with or without a slash at its end. NULL for a store of
  /// objects.
  const char* url;
  /// Further headers of each request to the service.
  const varo_pair* headers;
  size_t header_count;
  /// Certificates (PEM) to trust besides the system's. NULL for none.
  const char* ca_file;
  /// Bytes of an upload that are sent at once. 0: 1 MiB.
  uint64_t chunk_size;
  /// Transfers of this client that run at once; others wait for their turn. 0: 5.
  int parallel;
  /// Until a connection stands, name look-up and TLS included, in milliseconds. 0: 30 s.
  int64_t connect_timeout_ms;
  /// How long no byte may move before a request is given up, in milliseconds. 0: 60 s.
  int64_t stall_timeout_ms;
  /// NULL: nothing is shown.
  varo_credentials_fn credentials;
  /// Given to the functions above.
  void* user;
  /// Called once, on any thread, when nothing of the client uses `user` any more: the client was
  /// freed and its last operation has ended. Where no client was made, `user` stays the caller's.
  /// NULL: nothing is called.
  varo_free_fn free_user;
  /// Gets what the operations of this client log, from `log_level` on. NULL: nothing is logged, as
  /// outcomes tell all that a program needs.
  varo_log_fn log;
  varo_log_level log_level;
  /// How often a request is sent that fails for the moment, where a repeat does no harm. 0: 5; 1:
  /// never again.
  int64_t retry_attempts;
  /// The wait before the second attempt is drawn between nothing and this; it doubles with each
  /// further one, up to the longest. In milliseconds. 0: 500 ms, and 30 s.
  int64_t retry_first_wait_ms;
  int64_t retry_longest_wait_ms;
  /// A server that wants to be left alone for longer is not asked again. In milliseconds. 0: 1 min.
  int64_t retry_longest_retry_after_ms;
  /// All waits of one operation together, in milliseconds. 0: 5 min.
  int64_t retry_budget_ms;

  // The line: how servers are reached, and how fast.

  /// http, https, socks4, socks4a, socks5 or socks5h, host and port: "http://proxy.example:3128".
  /// NULL: connections are made directly.
  const char* proxy;
  /// What the proxy asks for; NULL for none. Never in a failure or a log.
  const char* proxy_user;
  const char* proxy_password;
  /// Hosts that are reached without the proxy, each as `varo::Proxy::bypass` has it.
  const char* const* proxy_bypass;
  size_t proxy_bypass_count;
  /// Not 0: the proxy and the hosts to reach without are what the environment says when the client
  /// is made.
  int proxy_from_environment;
  varo_tls_version minimum_tls;
  /// Certificates to trust besides the system's: a directory with one (PEM) a file, named as
  /// `openssl rehash` does. NULL for none.
  const char* ca_directory;
  /// Shown to servers that ask who connects (PEM); the key, where it is not in the same file, and
  /// its password. NULL for none.
  const char* client_certificate;
  const char* client_key;
  const char* client_key_password;
  /// Public keys of which every https server must have one: "sha256//" and a digest in Base64.
  const char* const* pinned_keys;
  size_t pinned_key_count;
  /// Bytes that all transfers of this client together may move in a second, in each direction. 0:
  /// as many as the line takes.
  uint64_t bytes_per_second;
  /// The header "User-Agent". NULL: "varobinary/" and the version of the library.
  const char* user_agent;

  // What operators see.

  /// Told of each request that has ended, and of each operation. NULL: nothing is measured.
  varo_request_fn on_request;
  varo_operation_fn on_operation;
  /// Bytes of memory that the transfers of this client may need together: each reserves what it
  /// needs at most, and waits for its turn until there is as much. One that alone needs more is a
  /// `VARO_INVALID_ARGUMENT`. 0: as much as `parallel` transfers need.
  uint64_t memory;
} varo_options;

#ifdef __cplusplus
}
#endif
