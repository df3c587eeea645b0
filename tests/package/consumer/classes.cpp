// An application of the classes below the client. The build makes this header, which includes every
// header of the classes that is installed.
#include <all_classes.h>
#include <future>
#include <iostream>

using varo::binary::BinaryFileStorageInterface;
using varo::platform::Dictionary;
using varo::platform::Value;

int main() {
  static std::promise<bool> failed;
  BinaryFileStorageInterface::getFilesWithUrl(
      "http://127.0.0.1:1/", "file_name eq 'a'", Dictionary(),  // nobody listens on this port
      [](const Value&) { failed.set_value(false); },
      [](const Value& failure) {
        std::cout << failure.description() << '\n';
        failed.set_value(true);
      },
      Dictionary());
  return failed.get_future().get() ? 0 : 1;
}
