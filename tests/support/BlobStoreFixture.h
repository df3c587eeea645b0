#pragma once

#include "Binary/Binary/BinaryDataManager/BlobStoreTable.h"
#include "Sandbox/Blobs/GeneratedBytes.h"
#include "tests/support/Await.h"
#include "tests/support/SandboxFixture.h"
#include "varo/blobs.h"

#include <SQLiteCpp/Database.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace varo::test {

inline constexpr std::uint64_t kRange = 4096;
inline constexpr std::uint64_t kSize = 10'000;  // three ranges

/// Databases of records with photos, and a sandbox that has these.
class BlobStoreFixture : public sandbox::SandboxTest {
 protected:
  [[nodiscard]] std::string path(const std::string& name) const { return directory_ + "/" + name; }
  [[nodiscard]] std::string database(const std::string& name) const { return path(name + ".db"); }

  /// A database with so many records without a blob, and a directory for its files; the service has
  /// the blobs under the scope of the same name.
  void makeDatabase(const std::string& name, int count = 1, std::uint64_t size = kSize) const {
    SQLite::Database database(this->database(name), SQLite::OPEN_READWRITE | SQLite::OPEN_CREATE);
    database.exec(std::string("CREATE TABLE album (pk INTEGER PRIMARY KEY, blobref_photo TEXT);") +
                  binary::blobs::kCreateTable);
    database.exec("BEGIN");
    for (int pk = 1; pk <= count; ++pk) {
      database.exec("INSERT INTO album VALUES (" + std::to_string(pk) + ", NULL)");
      const auto error = server_->putBlob({name, "album", {{"pk", std::to_string(pk)}}},
                                          sandbox::BlobObject{{{size, seed(name, pk)}}});
      EXPECT_FALSE(error) << error->message;
    }
    database.exec("COMMIT");
    std::filesystem::create_directory(path(name));
  }
  void sql(const std::string& name, const std::string& statements) const {
    SQLite::Database(database(name), SQLite::OPEN_READWRITE, 5000).exec(statements);
  }
  static std::uint64_t seed(const std::string& name, int pk) {
    return 1000 * std::hash<std::string>()(name) + static_cast<std::uint64_t>(pk);
  }
  static std::string photo(const std::string& name, int pk, std::uint64_t size = kSize) {
    std::string bytes(size, '\0');
    EXPECT_EQ(sandbox::GeneratedBytes(seed(name, pk), size).readAt(0, bytes),
              static_cast<std::int64_t>(size));
    return bytes;
  }

  [[nodiscard]] BlobService service(const std::string& name) const {
    return {.options = {.url = server_->blobUrl(),
                        .parallel = 2,
                        .retry = {.attempts = 1}},  // tests look at the first failure
            .scope = name,
            .rangeSize = Bytes(kRange),
            .parallelRanges = 1};  // and count the requests
  }
  [[nodiscard]] BlobStore open(const std::string& name) const {
    return BlobStore::open(database(name), path(name), service(name)).value();
  }
  static BlobRef blob(int pk) {
    return {.table = "album", .column = "photo", .keys = {{"pk", pk}}};
  }

  /// Of each blob, the second range does not come: the first `count` times, or always.
  void holdSecondRange(std::optional<std::uint64_t> count = {}) {
    server_->addFault({.match = {.path = "/binary", .skip = 1, .count = count, .perTarget = true},
                       .action = {.stallAfter = 0, .stallFor = std::chrono::milliseconds(-1)}});
  }
  [[nodiscard]] bool awaitRequests(std::uint64_t count) const {
    return eventually([&] { return server_->serviceStats().requests >= count; });
  }
  /// Where the ranges began that were asked for, in their order.
  [[nodiscard]] std::vector<std::string> ranges() const {
    std::vector<std::string> all;
    for (const auto& request : server_->requests()) all.push_back(*request.header("Range"));
    return all;
  }
};

}  // namespace varo::test
