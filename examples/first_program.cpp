#include "Binary/BinaryFileAdapterWithMetadata/FileAdapterInterface/BinaryFileStorageInterface.h"

#include <future>
#include <iostream>

using varo::binary::BinaryFileStorageInterface;
using varo::platform::Dictionary;
using varo::platform::Value;

// Uploads a file and lists what the service has:  first_program URL FILE
int main(int count, char** words) {
  if (count != 3) return 2;
  static std::promise<Value> done;  // blocks run on threads that live as long as the process
  const auto fail = [](const Value& error) { done.set_value(error); };
  const Dictionary upload{{"headers", Dictionary()},
                          {"metadata", Dictionary{{"file_name", "hello.txt"}}},
                          {"file", Dictionary{{"filePath", words[2]}}}};
  const auto list = [&](const Value&) {
    BinaryFileStorageInterface::getFilesWithUrl(
        words[1], "file_name eq 'hello.txt'", Dictionary(),
        [&](const Value& result) { done.set_value(result); }, fail, Dictionary());
  };
  BinaryFileStorageInterface::uploadBinaryWithUrl(words[1], "UploadInputTypeLocalFilePath", upload,
                                                  list, fail, nullptr, Dictionary());
  std::cout << done.get_future().get().description() << '\n';
}
