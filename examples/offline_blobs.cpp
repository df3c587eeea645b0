#include <iostream>
#include <varo/client.h>

int failed(const varo::Failure& failure) {
  std::cerr << failure.message << '\n';
  return 1;
}

// Fetches the photos of all employees in an application's database, and says what became of each:
//   offline_blobs BLOB_URL DATABASE DIRECTORY
// To have a service and a database:  varobinary sandbox --example-db staff.db
int main(int count, char** words) {
  if (count != 4) return 2;
  const auto store =
      varo::BlobStore::open(words[2], words[3], {.options = {.url = words[1]}, .scope = "HR"});
  if (!store) return failed(store.error());
  const auto photos =
      store->blobsOf({.table = "employees", .column = "photo", .keyColumns = {"id"}});
  if (!photos) return failed(photos.error());
  const auto states = store->fetchAll(*photos).get();
  if (!states) return failed(states.error());
  for (const varo::BlobState& state : *states) {
    std::cout << varo::nameOf(state.status) << ": "
              << (state.hasFile() ? state.path->string() : state.reason) << '\n';
  }
}
