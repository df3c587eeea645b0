#include "Binary/Binary/BinaryDataManager/OnlineBinaryDataManager.h"
#include "Binary/Binary/BinaryDataManager/OnlineBinaryUploadManager.h"
#include "Binary/Binary/BinaryLogger.h"
#include "Platform/Foundation/UserDirectories.h"

#include <future>
#include <iostream>

using varo::binary::OnlineBinaryDataManager;
using varo::binary::OnlineBinaryUploadManager;
using varo::platform::Dictionary;
using varo::platform::UserDirectories;
using varo::platform::Value;

// Puts a file into the sandbox's signed store and gets it back below HOME:
//   online_transfers TEMPLATE_URL STORE_HOST_AND_PORT FILE HOME
int main(int count, char** words) {
  if (count != 5) return 2;
  varo::binary::BinaryLogger::sharedInstance().setLogLevel(varo::platform::LogLevel::kFatal);
  UserDirectories::install(UserDirectories::below(words[4]));  // default: the user's own
  static std::promise<int> done;  // blocks run on threads that live as long as the process
  Dictionary keys{{"objectName", "example/file"},  // as it stands in an address
                  {"regionName", "us-east-1"},
                  {"accessKeyID", "sandbox"},
                  {"secretAccessKey", "sandbox-secret-key"}};
  const Dictionary upload{{"URL", words[1]}, {"FilePath", words[3]}, {"uploadParams", keys}};
  keys.set("serviceName", "s3");
  const std::string host = words[2];
  const Dictionary download{{"endpointUrl", "http://" + host + "/${fileId}"},
                            {"Host", host},
                            {"method", "GET"},
                            {"Auth", "HMACDigest"},
                            {"AuthParameters", keys}};

  const auto failed = [](const std::string& name, const Value& error, const Value&) {
    std::cerr << name << ": " << error.description() << '\n';
    done.set_value(1);
  };
  const auto downloaded = [](const std::string& name, const std::string& path, const Value&) {
    std::cout << name << " is in " << path << '\n';
    done.set_value(0);
  };
  // The object is in the store. With `true` its chunks would go to the third block, not to a file.
  const auto uploaded = [=](const std::string&, const std::string&, const Value&) {
    OnlineBinaryDataManager::sharedInstance()->createAndStartOnlineDownloadTaskFor(
        Dictionary{{"fileId", "example/file"}}, false, download, {}, {}, {}, downloaded, failed,
        std::nullopt);
  };
  OnlineBinaryUploadManager::sharedInstance()->createAndStartOnlineUploadTaskFor(
      upload, {}, {}, uploaded, failed, std::nullopt);
  return done.get_future().get();
}
