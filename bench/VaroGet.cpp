// The get of a signed object, with the options that an application has without asking:
//
//   varo_get ENDPOINT BUCKET KEY FILE

#include "varo/client.h"

#include <fmt/format.h>

int main(int argc, char** argv) try {
  if (argc != 5) {
    fmt::print(stderr, "usage: varo_get ENDPOINT BUCKET KEY FILE\n");
    return 2;
  }
  // The sandbox's, unless it is told otherwise.
  const auto keys = [] {
    return varo::Credentials{.accessKey = "sandbox", .secretKey = "sandbox-secret-key"};
  };
  const varo::S3 where{.endpoint = argv[1], .region = "us-east-1", .bucket = argv[2]};
  const auto store = varo::ObjectStore::create(where, {.credentials = keys}).value();
  static_cast<void>(store.get(varo::ObjectKey(argv[3]), std::string(argv[4])).get().value());
  static_cast<void>(varo::shutDown());
  return 0;
} catch (const varo::BadOutcome& failed) {
  fmt::print(stderr, "varo_get: {}\n", failed.what());
  return 1;
}
