#pragma once

#include "varo/export.h"
#include "varo/metadata.h"
#include "varo/names.h"
#include "varo/options.h"
#include "varo/source.h"
#include "varo/transfer.h"

#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace varo {

namespace detail {
class ClientCore;
}  // namespace detail

/// A file as the service describes it.
struct FileRecord {
  FileId id;
  /// "file_name".
  std::string name;
  /// None where the service does not say it.
  std::optional<Bytes> size;
  /// All entries of the record that are a text, a number or a truth value, the above included.
  Metadata metadata;
};

struct UploadOptions {
  /// Empty: the last component of the source's path; a source without a path needs one.
  std::string name = {};
  /// Further entries of the record.
  Metadata metadata = {};
  /// The namespace that the file is in, and the key that protects it; empty for none.
  std::string fileNamespace = {};
  std::string securityKey = {};
  /// None: the client's.
  std::optional<Bytes> chunkSize = {};
  /// Goes on with an upload whose `Failure::place` or `onPlace` this is, also of a process that has
  /// ended, at the first chunk that the service does not have. Source, name, metadata, namespace
  /// and key have to be those of then; the chunk size is. A source that has another size or, a
  /// file, another time of modification is `Kind::kInvalidArgument`, and so is a reader. An upload
  /// that was committed in the meantime is a success. Empty: a new upload.
  ///
  /// To an outside store that takes chunks nobody can tell which of them it has: a new record is
  /// made there, and the old one removed.
  UploadPlace resume = {};
  /// Told where the upload could go on: first when the service has made its record, then after each
  /// chunk that the service has. Keep the last one to go on after the process has ended. A callback
  /// of the handle like `onDone`; the upload does not wait for it.
  std::function<void(const FileId& record, const UploadPlace& place)> onPlace = {};
  /// Bytes that this transfer may move in a second, in each direction, at least 1. It shares
  /// `Options::perSecond` with the others, too: the slower limit wins. None: that one alone.
  std::optional<Bytes> perSecond = {};
};

/// A run of a file's bytes.
struct FileRange {
  /// From 0.
  std::uint64_t first = 0;
  /// None: to the end of the file. Where the file ends sooner, what there is.
  std::optional<Bytes> length = {};
};

struct DownloadOptions {
  IfExists ifExists = IfExists::kFail;
  /// None: the whole file. A range of no bytes, or one that begins behind the end, is
  /// `Kind::kInvalidArgument`.
  std::optional<FileRange> range = {};
  /// The namespace that the file is in, and the key that protects it; empty for none.
  std::string fileNamespace = {};
  std::string securityKey = {};
  /// As `UploadOptions::perSecond`.
  std::optional<Bytes> perSecond = {};
};

/// The files of one service.
///
/// A client is a cheap handle: its copies share connections, settings and limits. Thread-safe.
/// Operations that are under way go on when the last copy is gone.
///
/// A pause reaches every operation that waits for its turn. Of those that run, it stops
/// - a list, which begins anew with the resume;
/// - a download, which goes on behind the last byte that came. One to a path begins anew where the
///   file has changed meanwhile;
/// - an upload, which goes on at the chunk that was under way. While the record is made or
///   committed, that comes to its end first.
///
/// An update and a delete go on, since a repeat could do harm.
class FileClient {
 public:
  /// Checks the options; sends nothing. `Kind::kInvalidArgument` names the option that is wrong,
  /// `Kind::kShutDown` after `shutDown`.
  [[nodiscard]] static VARO_API Outcome<FileClient> create(Options options);

  // Not moved: a client that was moved from could do nothing.
  FileClient(const FileClient&) = default;
  FileClient& operator=(const FileClient&) = default;
  ~FileClient() = default;

  /// Creates the record, sends the bytes, commits. The service takes no empty file: a source
  /// without bytes is `Kind::kInvalidArgument`.
  ///
  /// - `Failure::begun` names the record that a failure leaves behind: `remove` gives it up, and
  ///   `UploadOptions::resume` with `Failure::place` goes on, which does no harm even where
  ///   `isWorthRetrying` is false because nobody knows whether the commit was carried out. It is
  ///   false as well where nobody knows whether the record was made, which then has no name.
  /// - Cancelled: the record is removed before the outcome is there; where that fails, `begun`
  ///   names it. Where the handle is destroyed, the removal goes on without it. A creation that is
  ///   under way is waited for, for 5 s at most, since only its response names the record.
  /// - Progress counts the bytes that were handed to the connection.
  VARO_API Transfer<FileRecord> upload(Source source, UploadOptions options = {}) const;

  /// Brings a file's bytes to `to`. The outcome is where the file is, empty for a `Sink`.
  ///
  /// - A path has to be that of the file, not of a directory, and its directory has to be there.
  /// - A `Sink` gets bytes while they come. Where it is slower than the network, they wait in a
  ///   nameless file in the directory for temporary files.
  /// - Bytes that are not those that were asked for, or not all of them, are `Kind::kIntegrity`.
  VARO_API Transfer<std::filesystem::path> download(FileId id, Destination to,
                                                    const DownloadOptions& options = {}) const;

  /// The records of the files that match.
  VARO_API Transfer<std::vector<FileRecord>> list(Filter filter = {}) const;

  /// Replaces the metadata of a file. One that is not there is as in `remove`.
  VARO_API Transfer<FileRecord> update(FileId id, const Metadata& metadata) const;

  /// Deletes a file, or gives up an upload that was begun. How many there were. Where the service
  /// tells a file that is not there by a status of its own, that is `Kind::kServer`, with the
  /// `serviceStatus`.
  VARO_API Transfer<std::uint64_t> remove(FileId id) const;

  /// Deletes all files that match, and says how many. An empty filter is
  /// `Kind::kInvalidArgument`: nothing is deleted because something was left out.
  VARO_API Transfer<std::uint64_t> removeWhere(Filter filter) const;

 private:
  explicit FileClient(std::shared_ptr<detail::ClientCore> core) : core_(std::move(core)) {}

  std::shared_ptr<detail::ClientCore> core_;
};

}  // namespace varo
