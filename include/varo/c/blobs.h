#pragma once

#include "varo/c/options.h"
#include "varo/c/transfer.h"

#ifdef __cplusplus
extern "C" {
#endif

/// The blobs of one application's offline database: brings them into files, and keeps their state
/// in the table of blobs that the application's sync engine reads as well (docs/schema.md).
///
/// What it begins goes on when it is freed. Failures name table, keys and column; those of the
/// database are `VARO_DATABASE`.
typedef struct varo_blobs varo_blobs;

/// The blob of one record. Comes in arrays, so it keeps its size for good.
typedef struct varo_blob_ref {
  const char* table;
  /// The binary column, without the "blobref_" of the column that links it.
  const char* column;
  /// The record's primary keys, by their columns; at least one.
  const varo_entry* keys;
  size_t key_count;
} varo_blob_ref;

/// What the table of blobs says of one; docs/schema.md has its numbers.
typedef enum varo_blob_status {
  VARO_BLOB_NOT_FETCHED = 0,  ///< nobody has asked for it yet
  VARO_BLOB_FETCHING = 1,     ///< a fetch runs, or was broken off by the end of its process
  VARO_BLOB_PAUSED = 2,       ///< a fetch was paused or cancelled; the next one goes on from there
  VARO_BLOB_FAILED = 3,       ///< the last fetch failed; the next one goes on from there
  VARO_BLOB_AVAILABLE = 4,    ///< its file is complete
  VARO_BLOB_WAITS_FOR_UPLOAD = 5,  ///< its file is complete, and the sync engine is to upload it
  VARO_BLOB_UPLOADING = 6,         ///< its file is complete, and the sync engine uploads it
  VARO_BLOB_DELETION_WAITS = 7,    ///< the sync engine is to delete it on the service
  VARO_BLOB_BEING_DELETED = 8,     ///< the sync engine deletes it on the service
  VARO_BLOB_OTHER = 9,             ///< a number that this library does not know

  VARO_BLOB_STATUS_HAS_32_BITS = 0x7fffffff
} varo_blob_status;

/// One blob at one moment. Its texts are never NULL, but for `path`.
typedef struct varo_blob {
  size_t size;
  /// Without keys where nobody named them: the table of blobs does not have them.
  const varo_blob_ref* ref;
  /// Empty for one that has no row in the table of blobs yet.
  const char* id;
  varo_blob_status status;
  /// Whether, as the table has it, the file at `path` is there to be read. `varo_blobs_path` looks.
  int has_file;
  /// The status in words, or why it could not be fetched.
  const char* reason;
  /// Where its file is, or will be gone on with; NULL where there is none.
  const char* path;
  /// Of the complete file; -1 where the table does not have it.
  int64_t bytes;
  /// Of this blob in a fetch of several; NULL for none, and in what the table alone says.
  const varo_failure* failure;
} varo_blob;

/// How the service sends the bytes of a blob.
typedef enum varo_blob_encoding {
  VARO_BLOB_BYTES = 0,   ///< as they are, in ranges; what comes in Base64 is a failure
  VARO_BLOB_BASE64 = 1,  ///< in Base64 within JSON, as a whole; at most 64 MiB

  VARO_BLOB_ENCODING_HAS_32_BITS = 0x7fffffff
} varo_blob_encoding;

/// The service that blobs are fetched from, and how.
typedef struct varo_blob_service {
  size_t size;
  /// The URL is that of the blob service; `chunk_size` is not for blobs.
  const varo_options* options;
  /// The application's scope on the service, as people write it.
  const char* scope;
  /// The object that the records are on the service. NULL: the name of their table.
  const char* object;
  /// Bytes that one request asks for. A pause or a broken connection loses at most as many of each
  /// request that is under way. 0: 1 MiB.
  uint64_t range_size;
  varo_blob_encoding encoding;
  /// Name the device and the sync session to the service; NULL for none.
  const char* client_id;
  const char* sync_session_id;
  /// Further parameters of each request's address.
  const varo_pair* parameters;
  size_t parameter_count;
  /// Requests for one blob that are under way at once, at most 64; as many of them as make it
  /// faster. 0: 4.
  int parallel_ranges;
} varo_blob_service;

/// When `varo_blobs_remove` removes the file.
typedef enum varo_file_removal {
  VARO_FILE_LEFT_TO_SYNC =
      0,              ///< not now: the sync engine does, when the service has deleted the blob
  VARO_FILE_NOW = 1,  ///< at once, before a sync session

  VARO_FILE_REMOVAL_HAS_32_BITS = 0x7fffffff
} varo_file_removal;

/// Looks at the database and the directory, checks the options, and makes `*blobs`; sends nothing.
///
/// - `database`: the SQLite file, which the application owns. `VARO_DATABASE` where it is not
///   there, is no database, or has no table of blobs.
/// - `files`: the directory that the blobs' files come into, named after their ids.
///   `VARO_LOCAL_FILE` where it is not there or cannot be written, `VARO_CONFLICT` where an open
///   store has it for another database.
///
/// On a failure `*blobs` is NULL, and `*failure`, where `failure` is not NULL, says why:
/// `varo_failure_free`. Else `*failure` is NULL.
VARO_API varo_code varo_blobs_open(const char* database, const char* files,
                                   const varo_blob_service* service, varo_blobs** blobs,
                                   varo_failure** failure);
/// NULL is fine.
VARO_API void varo_blobs_free(varo_blobs* blobs);

/// Starts to bring a blob into its file. The outcome has its path. Nothing is sent where it is
/// there already.
///
/// - Cancelled, paused or failed: the row and the partial file stay, and a later fetch goes on
///   there.
/// - `VARO_NOT_FOUND` for no such record, or none on the service; `VARO_CONFLICT` for a blob that
///   is to be deleted, or whose file another process is writing; `VARO_INTEGRITY` where the object
///   changed under way.
VARO_API varo_transfer* varo_blobs_fetch(const varo_blobs* blobs, const varo_blob_ref* blob);
/// Starts to fetch `count` blobs, a few at a time. The outcome has as many blobs, in the order of
/// `refs`; one that cannot be fetched has its `failure`, and the others go on. One that is named
/// twice is fetched once. Pause, resume and cancel reach those that run and those that wait.
VARO_API varo_transfer* varo_blobs_fetch_all(const varo_blobs* blobs, const varo_blob_ref* refs,
                                             size_t count);

/// The functions below look at the database and return when they have: an outcome that belongs to
/// the caller, `varo_outcome_free`. They never give NULL.

/// The blobs of all records of a table, as the database has them now: `varo_outcome_blob_refs`.
/// The key columns tell the records apart; at least one.
VARO_API varo_outcome* varo_blobs_of(const varo_blobs* blobs, const char* table, const char* column,
                                     const char* const* key_columns, size_t key_column_count);
/// What the database says of this blob now: one blob.
VARO_API varo_outcome* varo_blobs_state(const varo_blobs* blobs, const varo_blob_ref* blob);
/// What it says of all blobs that have a row in the table of blobs, by their ids.
VARO_API varo_outcome* varo_blobs_states(const varo_blobs* blobs);
/// Where the file of a blob is. `VARO_NOT_FOUND` where there is none to be read.
VARO_API varo_outcome* varo_blobs_path(const varo_blobs* blobs, const varo_blob_ref* blob);
/// Has the sync engine delete the blob on the service. The outcome has its state then. Cancel a
/// fetch of it first. `VARO_LOCAL_FILE` for a file that cannot be removed: then nothing is
/// recorded.
VARO_API varo_outcome* varo_blobs_remove(const varo_blobs* blobs, const varo_blob_ref* blob,
                                         varo_file_removal when);

/// Has its callback told of changes for as long as it lives.
typedef struct varo_watch varo_watch;
/// `blob` is there during the call.
typedef void (*varo_blob_fn)(void* user, const varo_blob* blob);

/// Has `callback` called with a blob whenever this process has changed it, through whatever store
/// on the database: on threads of the library, one call at a time, in the order of the changes. It
/// may call anything.
///
/// On a failure `*watch` is NULL, and `*failure` is as `varo_blobs_open` leaves it.
VARO_API varo_code varo_blobs_watch(const varo_blobs* blobs, varo_blob_fn callback, void* user,
                                    varo_watch** watch, varo_failure** failure);
/// When this has returned, the callback does not run any more; inside of the callback it does not
/// wait for that. NULL is fine.
VARO_API void varo_watch_release(varo_watch* watch);

/// One blob of an outcome; NULL where it has none at `index`.
VARO_API const varo_blob* varo_outcome_blob(const varo_outcome* outcome, size_t index);
/// The names of blobs of an outcome, `varo_outcome_count` of them: for `varo_blobs_fetch_all`.
/// NULL where it has none.
VARO_API const varo_blob_ref* varo_outcome_blob_refs(const varo_outcome* outcome);
/// "notFetched" for `VARO_BLOB_NOT_FETCHED`, and so on. Lives as long as the process.
VARO_API const char* varo_blob_status_name(varo_blob_status status);

#ifdef __cplusplus
}
#endif
