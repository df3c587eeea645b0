#pragma once

#include "varo/export.h"
#include "varo/names.h"
#include "varo/options.h"
#include "varo/source.h"
#include "varo/transfer.h"
#include "varo/units.h"

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <variant>
#include <vector>

namespace varo {

namespace detail {
class ObjectPlace;
}  // namespace detail

/// A store with an S3-compatible interface, addressed directly. Requests are signed with AWS
/// Signature Version 4 where `Options::credentials` gives an access key, else sent unsigned, for
/// stores that are open to all.
struct S3 {
  enum class Addressing : std::uint8_t {
    kPath,         ///< https://ENDPOINT/BUCKET/KEY, which every store understands
    kVirtualHost,  ///< https://BUCKET.ENDPOINT/KEY
  };

  /// http or https, host and port: "https://s3.eu-west-1.example.com". No path.
  std::string endpoint;
  /// As the store calls it: "eu-west-1". Part of every signature.
  std::string region;
  /// 3 to 63 letters, digits, "-", "." and "_"; for `kVirtualHost` no capitals and no "_".
  std::string bucket;
  Addressing addressing = Addressing::kPath;
};

/// A service that says of each upload where it goes ("upload template"), and the store that the
/// objects are then got from. It can `put` and `get` only. The service decides how bytes are
/// received: an upload is one request, of at least one byte. Where the store refuses it for its
/// time, another template is asked for, once.
struct TemplateService {
  /// Where templates are asked for.
  std::string templates;
  /// The objects are below this address: a get asks for "STORE/KEY".
  std::string store;
  /// Where the store's requests are signed. With it, `Options::credentials` has to give an access
  /// key, without a session token; it is sent to `templates` with each upload, whose template may
  /// ask for it. Empty: nothing is signed, and the store is shown the token.
  std::string region = {};
  /// What is posted to `templates` besides.
  std::map<std::string, std::string> parameters = {};
};

/// What a store says about an object.
struct ObjectInfo {
  ObjectKey key;
  /// Of the whole object. None where the store does not say it.
  std::optional<Bytes> size = {};
  /// The store's name of this version of the object ("ETag"), without quotes. Need not be a digest.
  std::string entityTag = {};
  std::optional<std::chrono::system_clock::time_point> modified = {};
  /// Empty where the store does not say it; lists never do.
  std::string contentType = {};
  /// In a list with a delimiter: `key` is the common beginning of keys that are not listed.
  bool isPrefix = false;
  /// Of a `get` into a file: where that is. With `IfExists::kKeep`, of a file that was there, all
  /// that is known besides the key.
  std::filesystem::path file = {};
};

/// How an object is put into an `S3`. A `TemplateService` takes `perSecond` alone: its template
/// says all else.
struct PutOptions {
  std::string contentType = "application/octet-stream";
  /// What is larger is sent in parts of this size, and the store makes one object of them
  /// ("multipart upload"). 5 MiB to 5 GiB. Parts of very large objects are larger, since there are
  /// 10,000 at most.
  Bytes partSize = 8_MiB;
  /// What to do with the parts of an upload that fails or is cancelled. By default they are
  /// removed. If they are kept, `Failure::upload` names the upload, and the store may charge for
  /// them until it is resumed or aborted.
  bool keepParts = false;
  /// Goes on with an upload of the same key whose parts were kept. Those that the store has are not
  /// sent again where they are certainly of the source's bytes: their size, and their "ETag" is the
  /// MD5 of those bytes, for which the source is read once up to the last part that the store has.
  /// All others are sent anew: where the source or `partSize` has changed, and in a store that
  /// makes its tags otherwise, as with keys of its own for encryption. So no object is made of two
  /// versions of a source. Empty: a new one.
  UploadId resume = {};
  /// Told the name of an upload in parts when it has begun, before a part is sent: for a `resume`
  /// after the process has ended. Called at most once, on a thread of the library.
  std::function<void(const UploadId&)> onBegun = {};
  /// Parts that are sent side by side at most, 1 to 64. It begins with one and adds others while
  /// that makes the whole faster; after a failure there are half as many. 1: never side by side.
  /// Bytes are read while they are sent, so each takes 1 MiB of memory at most.
  int partsAtOnce = 8;
  /// Bytes that this transfer, all its parts together, may move in a second, in each direction, at
  /// least 1. It shares `Options::perSecond` with the others, too: the slower limit wins. None:
  /// that one alone.
  std::optional<Bytes> perSecond = {};
};

/// A run of an object's bytes.
struct ObjectRange {
  /// From 0.
  std::uint64_t first = 0;
  /// None: to the end of the object. Where the object ends sooner, what there is.
  std::optional<Bytes> length = {};
};

struct GetOptions {
  IfExists ifExists = IfExists::kFail;
  /// None: the whole object. A range that begins behind the end is `Kind::kInvalidArgument`.
  std::optional<ObjectRange> range = {};
  /// Bytes that are asked for at once, 64 KiB to 5 GiB, and a millionth of all bytes at least. A
  /// pause loses at most the parts that are under way.
  Bytes partSize = 8_MiB;
  /// Parts that are asked for side by side at most, as `PutOptions::partsAtOnce`. Where the first
  /// answer is late, eight are asked for without a trial: the way is long.
  ///
  /// The parts of a file go to their places while they come. A `Sink` gets them in their order:
  /// what is under way, and waits for a part before it, takes `partsAtOnce` times `partSize` of the
  /// disk, or of memory where a part has at most 1 MiB.
  int partsAtOnce = 8;
  /// For a file: what has come of a get that does not end well, because it fails, is cancelled or
  /// its process is killed, stays, and the next get with `keepParts` of the same object into the
  /// same path goes on with the parts that are missing. It begins anew where the object was
  /// replaced, the store names no strong "ETag", or `range` or `partSize` is another one.
  ///
  /// Until then two hidden files are beside that of the destination, ".NAME.varo-part" with the
  /// bytes and ".NAME.varo-record"; a get that ends well removes them. Remove both to give it up.
  /// What came in the last second, or of the last 8 MiB, may have to come again. A second get into
  /// the same path meanwhile, of this or another process, is `Kind::kConflict`.
  bool keepParts = false;
  /// As `PutOptions::perSecond`.
  std::optional<Bytes> perSecond = {};
};

struct ObjectListOptions {
  /// Only keys that begin with this.
  std::string prefix = {};
  /// Keys that have this behind the prefix are not listed; each of their beginnings up to there is,
  /// once. Usually "/". Empty: all keys.
  std::string delimiter = {};
  /// None: all there are.
  std::optional<std::size_t> most = {};
};

/// The objects of one store.
///
/// A store is a cheap handle: its copies share connections, settings and limits. Thread-safe.
/// Operations that are under way go on when the last copy is gone.
///
/// Keys are given as people write them: "photos/Ann 1.jpg". One that is empty, longer than 1024
/// bytes or has a NUL, or has "." or ".." between slashes (which an address cannot hold) is
/// `Kind::kInvalidArgument`.
///
/// A pause stops the network; the resume goes on with the parts that are missing. What is less than
/// a part begins anew. An upload by a `TemplateService` is not stopped, only one that waits is.
class ObjectStore {
 public:
  /// Checks `where` and the options; sends nothing. `Kind::kInvalidArgument` names what is wrong,
  /// `Kind::kShutDown` after `shutDown`.
  ///
  /// `Options::url` has to stay empty: `where` says where the store is.
  [[nodiscard]] static VARO_API Outcome<ObjectStore> create(std::variant<TemplateService, S3> where,
                                                            Options options = {});

  // Not moved: a store that was moved from could do nothing.
  ObjectStore(const ObjectStore&) = default;
  ObjectStore& operator=(const ObjectStore&) = default;
  ~ObjectStore() = default;

  /// Puts an object, in place of the one that was there. It is there complete or not at all.
  ///
  /// - Progress counts the bytes that were handed to the connections; by a `TemplateService` all of
  ///   them at the end.
  /// - Given up or failed: the outcome is there when the parts are removed. Where that failed too,
  ///   `Failure::upload` names what is left.
  VARO_API Transfer<ObjectInfo> put(ObjectKey key, Source source, PutOptions options = {}) const;

  /// Brings an object's bytes to `to`; a path has to be that of the file, not of a directory, and
  /// its directory has to be there.
  ///
  /// - All bytes are of one version of the object; `Kind::kConflict` where it is replaced.
  /// - Progress counts what has come, and the parts that an earlier get has left. A `Sink` is
  ///   never called with the same byte twice.
  VARO_API Transfer<ObjectInfo> get(ObjectKey key, Destination to, GetOptions options = {}) const;

  /// Asks for what the store knows about an object. `S3` only.
  VARO_API Transfer<ObjectInfo> head(ObjectKey key) const;

  /// The objects, in the store's order: that of the keys' bytes. `S3` only.
  VARO_API Transfer<std::vector<ObjectInfo>> list(ObjectListOptions options = {}) const;

  /// Removes an object. Its key again, also where there was none: stores do not say. `S3` only.
  VARO_API Transfer<ObjectKey> remove(ObjectKey key) const;

 private:
  explicit ObjectStore(std::shared_ptr<const detail::ObjectPlace> place)
      : place_(std::move(place)) {}

  std::shared_ptr<const detail::ObjectPlace> place_;
};

}  // namespace varo
