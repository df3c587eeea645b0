#include "Binary/Binary/DownloadTask/DownloadPath.h"

#include "Binary/Binary/Utils/CommonUtils.h"
#include "Platform/Foundation/File.h"
#include "Platform/Foundation/UserDirectories.h"

#include <filesystem>
#include <string_view>
#include <system_error>

namespace varo::binary {
namespace {

constexpr char kOnlineFolder[] = "downloads";
constexpr char kOfflineFolder[] = "blobs";

/// The keys of object stores often hold slashes, for which there are no folders. A name that looks
/// encoded is encoded too, or the key that it looks like would have the same file.
std::string withoutSlashes(const std::string& id) {
  const auto has = [&id](std::string_view part) { return id.find(part) != std::string::npos; };
  if (!has("/") && !has("%2F") && !has("%25")) return id;
  std::string name;
  for (const char c : id) {
    if (c == '/') {
      name += "%2F";
    } else if (c == '%') {
      name += "%25";
    } else {
      name += c;
    }
  }
  return name;
}

}  // namespace

std::string DownloadPath::getDirectoryPath(const std::string& folder) {
  std::string path = platform::UserDirectories::current()->documents() + "/" + folder;
  std::error_code ignored;  // creating the file will tell
  std::filesystem::create_directories(path, ignored);
  return path;
}

std::string DownloadPath::folderOfBlobs() { return getDirectoryPath(kOfflineFolder); }

std::string DownloadPath::folderOfOnlineDownloads() { return getDirectoryPath(kOnlineFolder); }

std::string DownloadPath::ofBlob(const std::string& blobId) {
  return ofBlobIn(folderOfBlobs(), blobId);
}

std::string DownloadPath::ofBlobIn(const std::string& folder, const std::string& blobId) {
  // A blob id is what a server or a database says.
  if (!platform::staysInDirectory(folder, blobId)) return {};
  return folder + "/" + blobId;
}

std::string DownloadPath::ofOnlineDownload(const std::string& id) {
  // One component that begins with digits leads nowhere else, whatever it holds.
  return folderOfOnlineDownloads() + "/" + std::to_string(CommonUtils::getEpochTime()) + "_" +
         withoutSlashes(id);
}

}  // namespace varo::binary
