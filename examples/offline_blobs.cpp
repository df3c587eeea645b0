#include <iostream>
#include <varo/client.h>

// Fetches the photos of all employees in an application's database, and says what became of each:
//   offline_blobs BLOB_URL DATABASE DIRECTORY
// To have a service and a database that names its photos:
//   varobinary sandbox --example-db staff.db
int main(int count, char** words) {
  if (count != 4) return 2;
  const auto store =
      varo::BlobStore::open(words[2], words[3], {.options = {.url = words[1]}, .scope = "HR"});
  const auto fetchAll = [&](std::vector<varo::BlobRef>&& photos) {
    return store->fetchAll(std::move(photos)).get();
  };
  const auto states = !store ? varo::Outcome<std::vector<varo::BlobState>>(store.error())
                             : store->blobsOf({"employees", "photo", {"id"}}).and_then(fetchAll);
  if (!states) std::cerr << states.error().message << '\n';
  if (!states) return 1;
  for (const varo::BlobState& state : *states) {
    std::cout << state.id << ' ' << varo::nameOf(state.status) << ": "
              << (state.hasFile() ? state.path->string() : state.reason) << '\n';
  }
}
