#pragma once

#include "varo/c/options.h"
#include "varo/c/transfer.h"

#ifdef __cplusplus
extern "C" {
#endif

/// The objects of one store. Operations that are under way go on when it is freed.
///
/// Keys are given as people write them: "photos/Ann 1.jpg". One that is empty, longer than 1024
/// bytes, or has "." or ".." between slashes is `VARO_INVALID_ARGUMENT`.
///
/// A pause stops the network; the resume goes on with the parts that are missing. What is less
/// than a part begins anew. An upload by a template service is not stopped, only one that waits
/// is.
typedef struct varo_objects varo_objects;

typedef enum varo_addressing {
  VARO_ADDRESSING_PATH = 0,          ///< https://ENDPOINT/BUCKET/KEY, which every store understands
  VARO_ADDRESSING_VIRTUAL_HOST = 1,  ///< https://BUCKET.ENDPOINT/KEY

  VARO_ADDRESSING_HAS_32_BITS = 0x7fffffff
} varo_addressing;

/// A store with an S3-compatible interface, addressed directly. Requests are signed with AWS
/// Signature Version 4 where the credentials have an access key, else sent unsigned.
typedef struct varo_s3 {
  size_t size;
  /// http or https, host and port: "https://s3.eu-west-1.example.com". No path.
  const char* endpoint;
  /// As the store calls it: "eu-west-1". Part of every signature.
  const char* region;
  /// 3 to 63 letters, digits, "-", "." and "_"; for `VARO_ADDRESSING_VIRTUAL_HOST` no capitals and
  /// no "_".
  const char* bucket;
  varo_addressing addressing;
} varo_s3;

/// A service that says of each upload where it goes ("upload template"), and the store that the
/// objects are then got from. It can put and get only. An upload is one request, of at least one
/// byte.
typedef struct varo_template_service {
  size_t size;
  /// Where templates are asked for.
  const char* templates;
  /// The objects are below this address: a get asks for "STORE/KEY".
  const char* store;
  /// Where the store's requests are signed. With it, the credentials have to have an access key,
  /// without a session token; it is sent to `templates` with each upload. NULL: nothing is signed,
  /// and the store is shown the token.
  const char* region;
  /// What is posted to `templates` besides.
  const varo_pair* parameters;
  size_t parameter_count;
} varo_template_service;

/// What a store says about an object. Its texts are never NULL.
typedef struct varo_object {
  size_t size;
  const char* key;
  /// Of the whole object. -1 where the store does not say it.
  int64_t bytes;
  /// The store's name of this version of the object ("ETag"), without quotes. Need not be a
  /// digest.
  const char* entity_tag;
  /// Milliseconds since 1970 began; -1 where the store does not say it.
  int64_t modified_ms;
  /// Empty where the store does not say it; lists never do.
  const char* content_type;
  /// In a list with a delimiter: `key` is the common beginning of keys that are not listed.
  int is_prefix;
} varo_object;

/// Told the name of an upload in parts when it has begun, before a part is sent: to resume it
/// after the process has ended. Called at most once, as a `varo_read_fn` is.
typedef void (*varo_begun_fn)(void* user, const char* upload);

/// How an object is put into a `varo_s3`. A template service takes `bytes_per_second` alone.
typedef struct varo_put_options {
  size_t size;
  /// NULL: "application/octet-stream".
  const char* content_type;
  /// What is larger is sent in parts of this size ("multipart upload"). 5 MiB to 5 GiB; 0: 8 MiB.
  uint64_t part_size;
  /// What to do with the parts of an upload that fails or is cancelled. 0: they are removed. Else
  /// they are kept, and `varo_failure::upload` names the upload; the store may charge for them
  /// until it is resumed or aborted.
  int keep_parts;
  /// Goes on with an upload of the same key whose parts were kept: those that the store has are
  /// not sent again where their size and MD5 (as the store's "ETag") are those of the source's
  /// bytes, which are read once for that. All others are sent anew. NULL: a new one.
  const char* resume;
  /// NULL for none.
  varo_begun_fn on_begun;
  void* user;
  /// Parts that are sent side by side at most, 1 to 64; 0: 8. It begins with one and adds others
  /// while that makes the whole faster; after a failure there are half as many. 1: never side by
  /// side.
  int parts_at_once;
  /// Bytes that this transfer may move in a second, in each direction. It shares
  /// `varo_options::bytes_per_second` with the others, too: the slower limit wins. 0: that one
  /// alone.
  uint64_t bytes_per_second;
} varo_put_options;

typedef struct varo_get_options {
  size_t size;
  varo_if_exists if_exists;
  /// The first byte that is wanted, from 0, and how many. 0 for a length: to the end of the
  /// object. Where the object ends sooner, what there is; one that begins behind the end is
  /// `VARO_INVALID_ARGUMENT`.
  uint64_t range_first;
  uint64_t range_length;
  /// Bytes that are asked for at once, 64 KiB to 5 GiB, and a millionth of all bytes at least; 0: 8
  /// MiB.
  uint64_t part_size;
  /// Parts that are asked for side by side at most, as those of `varo_put_options`. What is under
  /// way takes so many times `part_size` of the disk, or of memory for parts of up to 1 MiB.
  int parts_at_once;
  /// For a path. Not 0: what has come of a get that fails, is cancelled or whose process is killed
  /// stays, and the next such get of the same object into the same path goes on with it, as long as
  /// the object is the same and `part_size` and range are. Until then the hidden files
  /// ".NAME.varo-part" and ".NAME.varo-record" are beside it. `VARO_CONFLICT` while another get
  /// into the same path is under way.
  int keep_parts;
  /// As that of `varo_put_options`.
  uint64_t bytes_per_second;
} varo_get_options;

typedef struct varo_object_list_options {
  size_t size;
  /// Only keys that begin with this. NULL: all.
  const char* prefix;
  /// Keys that have this behind the prefix are not listed; each of their beginnings up to there
  /// is, once. Usually "/". NULL: all keys.
  const char* delimiter;
  /// 0: all there are.
  size_t most;
} varo_object_list_options;

/// Checks `where` and the options and makes `*objects`; sends nothing. The options' URL has to
/// stay NULL: `where` says where the store is. `options` may be NULL.
///
/// On a failure `*objects` is NULL, and `*failure`, where `failure` is not NULL, says why:
/// `varo_failure_free`. Else `*failure` is NULL.
VARO_API varo_code varo_objects_create_s3(const varo_s3* where, const varo_options* options,
                                          varo_objects** objects, varo_failure** failure);
VARO_API varo_code varo_objects_create_templates(const varo_template_service* where,
                                                 const varo_options* options,
                                                 varo_objects** objects, varo_failure** failure);
/// NULL is fine.
VARO_API void varo_objects_free(varo_objects* objects);

/// The functions below start an operation. `options` may be NULL for defaults.

/// Puts an object, in place of the one that was there. It is there complete or not at all. The
/// outcome has one object.
///
/// Sources are as those of `varo_files_upload_path`, `_bytes` and `_reader`. Given up or failed:
/// the outcome is there when the parts are removed; where that failed too, `varo_failure::upload`
/// names what is left.
VARO_API varo_transfer* varo_objects_put_path(const varo_objects* objects, const char* key,
                                              const char* path, const varo_put_options* options);
VARO_API varo_transfer* varo_objects_put_bytes(const varo_objects* objects, const char* key,
                                               const void* bytes, size_t length,
                                               const varo_put_options* options);
VARO_API varo_transfer* varo_objects_put_reader(const varo_objects* objects, const char* key,
                                                varo_read_fn read, void* user, uint64_t length,
                                                const varo_put_options* options);

/// Brings an object's bytes to `path`, as `varo_files_download_path` does. The outcome has one
/// object, and the path.
VARO_API varo_transfer* varo_objects_get_path(const varo_objects* objects, const char* key,
                                              const char* path, const varo_get_options* options);
/// Hands an object's bytes to `write`. The outcome has one object.
VARO_API varo_transfer* varo_objects_get_sink(const varo_objects* objects, const char* key,
                                              varo_write_fn write, void* user,
                                              const varo_get_options* options);

/// Asks for what the store knows about an object. The outcome has one. `varo_s3` only.
VARO_API varo_transfer* varo_objects_head(const varo_objects* objects, const char* key);
/// The objects, in the store's order: that of the keys' bytes. `varo_s3` only.
VARO_API varo_transfer* varo_objects_list(const varo_objects* objects,
                                          const varo_object_list_options* options);
/// Removes an object; a success, too, where there was none: stores do not say. `varo_s3` only.
VARO_API varo_transfer* varo_objects_remove(const varo_objects* objects, const char* key);

/// One object of an outcome; NULL where it has none at `index`.
VARO_API const varo_object* varo_outcome_object(const varo_outcome* outcome, size_t index);

#ifdef __cplusplus
}
#endif
