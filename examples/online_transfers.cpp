#include <iostream>
#include <string>
#include <varo/client.h>

// Puts a file into a bucket of the sandbox's store, lists it, gets a copy and removes the object:
//   online_transfers STORE_URL BUCKET FILE COPY
int main(int count, char** words) try {
  if (count != 5) return 2;
  const auto keys = [] {
    return varo::Credentials{.accessKey = "sandbox", .secretKey = "sandbox-secret-key"};
  };
  const varo::S3 where{.endpoint = words[1], .region = "us-east-1", .bucket = words[2]};
  const auto store = varo::ObjectStore::create(where, {.credentials = keys}).value();

  const varo::ObjectKey key("photos/Ann 1.jpg");
  auto upload = store.put(key, varo::Source::file(words[3]));
  upload.onProgress([](const varo::Progress& now) {
    std::cout << now.done << " of " << now.total << " bytes\n";
  });
  std::cout << "put as version " << upload.get().value().entityTag << '\n';
  for (const varo::ObjectInfo& found : store.list({.prefix = "photos/"}).get().value()) {
    std::cout << found.key << " has " << found.size->count << " bytes\n";
  }
  std::cout << "got into " << store.get(key, std::string(words[4])).get().value().file << '\n';
  std::cout << "removed " << store.remove(key).get().value() << '\n';
} catch (const varo::BadOutcome& failed) {
  std::cerr << failed.what() << '\n';
  return 1;
}
