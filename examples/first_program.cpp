#include "Binary/Binary/BinaryLogger.h"
#include "Binary/BinaryFileAdapterWithMetadata/FileAdapterInterface/BinaryFileStorageInterface.h"

#include <future>
#include <iostream>

using varo::binary::BinaryFileStorageInterface;
using varo::platform::Dictionary;
using varo::platform::Value;

// Uploads a file, then lists what the service has under its name:  first_program URL FILE
int main(int count, char** words) {
  if (count != 3) return 2;
  varo::binary::BinaryLogger::sharedInstance().setLogLevel(varo::platform::LogLevel::kError);
  static std::promise<Value> done;  // blocks run on threads that live as long as the process
  const auto end = [](const Value& value) { done.set_value(value); };
  const auto show = [](const Value& progress) { std::cout << progress.description() << '\n'; };
  const auto list = [url = words[1], end](const Value&) {
    BinaryFileStorageInterface::getFilesWithUrl(url, "file_name eq 'hello.txt'", Dictionary(), end,
                                                end, Dictionary());
  };
  const Dictionary upload{{"headers", Dictionary()},
                          {"metadata", Dictionary{{"file_name", "hello.txt"}}},
                          {"file", Dictionary{{"filePath", words[2]}}}};
  BinaryFileStorageInterface::uploadBinaryWithUrl(words[1], "UploadInputTypeLocalFilePath", upload,
                                                  list, end, show, Dictionary());
  std::cout << done.get_future().get().description() << '\n';
}
