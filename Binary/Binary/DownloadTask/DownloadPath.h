#pragma once

#include <string>

namespace varo::binary {

/// Where the files of downloads are, in the documents directory. The folder is made where it is not
/// there; whether that succeeded shows when the file is created. Stateless, thread-safe.
class DownloadPath {
 public:
  DownloadPath() = delete;

  [[nodiscard]] static std::string folderOfBlobs();
  [[nodiscard]] static std::string folderOfOnlineDownloads();
  /// "blobs/ID"; empty for an id that would lead out of the folder.
  [[nodiscard]] static std::string ofBlob(const std::string& blobId);
  /// The same in a folder of the caller's.
  [[nodiscard]] static std::string ofBlobIn(const std::string& folder, const std::string& blobId);
  /// "downloads/SECONDS_NAME", with the seconds since 1970 of this call: the next one may give
  /// another path. The name is the id; one with slashes, or that looks percent-encoded, stands in
  /// percent-encoding ("/" and "%"), so that ids that differ have files that do.
  [[nodiscard]] static std::string ofOnlineDownload(const std::string& id);

 private:
  [[nodiscard]] static std::string getDirectoryPath(const std::string& folder);
};

}  // namespace varo::binary
