#pragma once

#include "varo/c/options.h"
#include "varo/c/transfer.h"

#ifdef __cplusplus
extern "C" {
#endif

/// The files of one service. Operations that are under way go on when it is freed.
///
/// A pause reaches every operation that waits for its turn. Of those that run, it stops a list,
/// a download and an upload; the others go on, since a repeat could do harm.
typedef struct varo_files varo_files;

/// A file as the service describes it. Its texts are never NULL.
typedef struct varo_file {
  size_t size;
  const char* id;
  const char* name;
  /// -1 where the service does not say it.
  int64_t bytes;
  /// All entries of the record that are a text, a number or a truth value, the above included.
  const varo_entry* metadata;
  size_t metadata_count;
} varo_file;

/// Told where an upload could go on: first when the service has made its record,
/// then after each chunk that the service has. Keep the last one, as you keep credentials,
/// to go on after the process has ended. Called as a `varo_done_fn` is; both texts live during the
/// call.
typedef void (*varo_place_fn)(void* user, const char* record, const char* place);

typedef struct varo_upload_options {
  size_t size;
  /// NULL: the last component of the source's path; a source without a path needs one.
  const char* name;
  /// Further entries of the record.
  const varo_entry* metadata;
  size_t metadata_count;
  /// The namespace that the file is in, and the key that protects it; NULL for none.
  const char* file_namespace;
  const char* security_key;
  /// 0: the client's.
  uint64_t chunk_size;
  /// Goes on with an upload whose `varo_failure::place` or `on_place` this is, also of a process
  /// that has ended. Source, name, metadata, namespace and key have to be those of then; the chunk
  /// size is. A source that has changed is `VARO_INVALID_ARGUMENT`, and so is a reader. NULL: a
  /// new upload.
  const char* resume;
  /// NULL for none.
  varo_place_fn on_place;
  void* user;
  /// Bytes that this transfer may move in a second, in each direction. It shares
  /// `varo_options::bytes_per_second` with the others, too: the slower limit wins. 0: that one
  /// alone.
  uint64_t bytes_per_second;
} varo_upload_options;

typedef struct varo_download_options {
  size_t size;
  varo_if_exists if_exists;
  /// The namespace that the file is in, and the key that protects it; NULL for none.
  const char* file_namespace;
  const char* security_key;
  /// The first byte that is wanted, from 0, and how many. 0 for a length: to the end of the file.
  /// Where the file ends sooner, what there is; one that begins behind the end is
  /// `VARO_INVALID_ARGUMENT`.
  uint64_t range_first;
  uint64_t range_length;
  /// As that of `varo_upload_options`.
  uint64_t bytes_per_second;
} varo_download_options;

/// Checks the options and makes `*files`; sends nothing. `VARO_INVALID_ARGUMENT` names the option
/// that is wrong, `VARO_SHUT_DOWN` after `varo_shut_down`.
///
/// On a failure `*files` is NULL, and `*failure`, where `failure` is not NULL, says why:
/// `varo_failure_free`. Else `*failure` is NULL.
VARO_API varo_code varo_files_create(const varo_options* options, varo_files** files,
                                     varo_failure** failure);
/// NULL is fine.
VARO_API void varo_files_free(varo_files* files);

/// The functions below start an operation. `options` may be NULL for defaults.

/// Creates the record, sends the bytes, commits. The outcome has one file.
///
/// - `varo_failure::begun` names the record that a failure leaves behind: `varo_files_remove`
///   gives it up, `varo_upload_options::resume` with `varo_failure::place` goes on.
/// - Cancelled: the record is removed before the outcome is there; where that fails, `begun` names
///   it.
///
/// `_path`: the regular file at `path`, which must not change before the end. `_bytes`: a copy of
/// `length` bytes. `_reader`: what `read` gives, which is first brought into a nameless temporary
/// file; `length` is how many bytes that has to be, or `VARO_UNKNOWN_LENGTH`.
VARO_API varo_transfer* varo_files_upload_path(const varo_files* files, const char* path,
                                               const varo_upload_options* options);
VARO_API varo_transfer* varo_files_upload_bytes(const varo_files* files, const void* bytes,
                                                size_t length, const varo_upload_options* options);
VARO_API varo_transfer* varo_files_upload_reader(const varo_files* files, varo_read_fn read,
                                                 void* user, uint64_t length,
                                                 const varo_upload_options* options);

/// Brings a file's bytes to `path`, which has to be that of the file, not of a directory, and
/// whose directory has to be there: the file is there complete or not at all. The outcome has its
/// path.
VARO_API varo_transfer* varo_files_download_path(const varo_files* files, const char* id,
                                                 const char* path,
                                                 const varo_download_options* options);
/// Hands a file's bytes to `write`.
VARO_API varo_transfer* varo_files_download_sink(const varo_files* files, const char* id,
                                                 varo_write_fn write, void* user,
                                                 const varo_download_options* options);

/// The files whose metadata has all of these values; all files where `count` is 0. Names have
/// letters, digits and underscores; values are quoted by the library, so one may hold anything.
VARO_API varo_transfer* varo_files_list(const varo_files* files, const varo_entry* terms,
                                        size_t count);
/// Replaces the metadata of a file. The outcome has one file.
VARO_API varo_transfer* varo_files_update(const varo_files* files, const char* id,
                                          const varo_entry* metadata, size_t count);
/// Deletes a file, or gives up an upload that was begun. The outcome has how many there were; a
/// file that is not there is `VARO_SERVER` where the service tells it by a status of its own.
VARO_API varo_transfer* varo_files_remove(const varo_files* files, const char* id);
/// Deletes all files whose metadata has all of these values. No condition is
/// `VARO_INVALID_ARGUMENT`: nothing is deleted because something was left out.
VARO_API varo_transfer* varo_files_remove_where(const varo_files* files, const varo_entry* terms,
                                                size_t count);

/// One file of an outcome; NULL where it has none at `index`.
VARO_API const varo_file* varo_outcome_file(const varo_outcome* outcome, size_t index);
/// The entry of a file's metadata with this name; NULL where there is none.
VARO_API const varo_entry* varo_file_entry(const varo_file* file, const char* name);

#ifdef __cplusplus
}
#endif
