#include "Binary/Binary/BinaryDataManager/BinaryDataManager.h"
#include "Binary/Binary/BinaryLogger.h"
#include "Platform/Foundation/UserDirectories.h"

#include <future>
#include <iostream>

using varo::binary::BinaryDataManager;
using varo::platform::Dictionary;
using varo::platform::ErrorPtr;
using varo::platform::UserDirectories;
using varo::platform::Value;

// Brings the photo of an employee into a file:  offline_blobs BLOB_URL HOME ID
// To have a service, and a database below HOME that names its photos:
//   varobinary sandbox --example-db HOME/Library/WEBSQLDIRECTORY/staff.db
int main(int count, char** words) {
  if (count != 4) return 2;
  varo::binary::BinaryLogger::sharedInstance().setLogLevel(varo::platform::LogLevel::kFatal);
  UserDirectories::install(UserDirectories::below(words[2]));  // default: the user's own
  static std::promise<int> done;  // blocks run on threads that live as long as the process

  // Called at the end, once: with an error, or with where the file is.
  const auto ended = [](const std::optional<std::string>& blobId, const ErrorPtr& error,
                        const std::optional<Dictionary>& result) {
    if (error != nullptr) {
      const Value details = error->userInfo();
      std::cerr << error->domain() << ' ' << error->code() << ": " << details.description() << '\n';
    } else {
      std::cout << "blob " << *blobId << " is in " << (*result)["FilePath"].textValue() << '\n';
    }
    done.set_value(error != nullptr ? 1 : 0);
  };
  // A download is made, and can then be started, paused and resumed by the id of its blob.
  const auto created = [ended](const ErrorPtr& error, const std::optional<std::string>& blobId) {
    if (error != nullptr)
      return ended(blobId, error, std::nullopt);  // no such record, or all there
    BinaryDataManager::sharedInstance()->startDownload(blobId, ended);
  };
  BinaryDataManager::sharedInstance()->createDownloadTaskForDb(
      "staff.db", "employees", "photo", Dictionary{{"id", words[3]}},
      Dictionary{{"URL", words[1]},
                 {"ScopeName", "HR"},
                 {"ObjectName", "employees"},
                 {"ChunkSize", 1 << 20}},
      created);
  return done.get_future().get();
}
