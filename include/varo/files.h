#pragma once

#include "varo/export.h"
#include "varo/metadata.h"
#include "varo/names.h"
#include "varo/options.h"
#include "varo/source.h"
#include "varo/transfer.h"

#include <cstdint>
#include <filesystem>
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
};

struct DownloadOptions {
  IfExists ifExists = IfExists::kFail;
  /// The namespace that the file is in, and the key that protects it; empty for none.
  std::string fileNamespace = {};
  std::string securityKey = {};
};

/// The files of one service.
///
/// A client is a cheap handle: its copies share connections, settings and limits. Thread-safe.
/// Operations that are under way go on when the last copy is gone.
///
/// A pause reaches every operation that waits for its turn. Of those that run, it stops a list and
/// a download, which begin anew with the resume; the others go on, since a repeat could do harm.
class FileClient {
 public:
  /// Checks the options; sends nothing. `Kind::kInvalidArgument` names the option that is wrong,
  /// `Kind::kShutDown` after `shutDown`.
  [[nodiscard]] static VARO_API Outcome<FileClient> create(Options options);

  // Not moved: a client that was moved from could do nothing.
  FileClient(const FileClient&) = default;
  FileClient& operator=(const FileClient&) = default;
  ~FileClient() = default;

  /// Creates the record, sends the bytes, commits.
  ///
  /// - `Failure::begun` names the record that a failure leaves behind: `remove` gives it up.
  /// - Cancelled: the record is removed before the outcome is there; where that fails, `begun`
  /// names
  ///   it. Where the handle is destroyed, the removal goes on without it.
  VARO_API Transfer<FileRecord> upload(Source source, UploadOptions options = {}) const;

  /// Brings a file's bytes to `to`; a path has to be that of the file, not of a directory, and its
  /// directory has to be there. The outcome is where the file is, empty for a `Sink`. Tells no
  /// progress before its end.
  VARO_API Transfer<std::filesystem::path> download(FileId id, Destination to,
                                                    const DownloadOptions& options = {}) const;

  /// The records of the files that match.
  VARO_API Transfer<std::vector<FileRecord>> list(Filter filter = {}) const;

  /// Replaces the metadata of a file.
  VARO_API Transfer<FileRecord> update(FileId id, const Metadata& metadata) const;

  /// Deletes a file, or gives up an upload that was begun. How many there were; a file that is not
  /// there is `Kind::kNotFound`.
  VARO_API Transfer<std::uint64_t> remove(FileId id) const;

  /// Deletes all files that match, and says how many. An empty filter is
  /// `Kind::kInvalidArgument`: nothing is deleted because something was left out.
  VARO_API Transfer<std::uint64_t> removeWhere(Filter filter) const;

 private:
  explicit FileClient(std::shared_ptr<detail::ClientCore> core) : core_(std::move(core)) {}

  std::shared_ptr<detail::ClientCore> core_;
};

}  // namespace varo
