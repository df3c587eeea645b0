#pragma once

#include "tests/support/SandboxFixture.h"
#include "varo/client.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <filesystem>
#include <span>
#include <string>

namespace varo {

inline constexpr char kBucket[] = "bucket";
inline const ObjectKey kKey("photos/Ann 1.jpg");

inline std::string textOf(std::span<const std::byte> bytes) {
  return {reinterpret_cast<const char*>(bytes.data()), bytes.size()};
}

/// A bucket of the sandbox's signed store, and a client of it.
class ObjectStoreTest : public sandbox::SandboxTest {
 protected:
  [[nodiscard]] S3 where() const {
    return {.endpoint = server_->storeUrl() + "/", .region = "us-east-1", .bucket = kBucket};
  }
  [[nodiscard]] ObjectStore store(Credentials shown = {.accessKey = "sandbox",
                                                       .secretKey = "sandbox-secret-key"}) const {
    return ObjectStore::create(where(), {.credentials = [shown] { return shown; },
                                         .retry = {.attempts = 1}})  // tests look at the first
        .value();
  }
  [[nodiscard]] std::filesystem::path path(const std::string& name) const {
    return directory_ + "/" + name;
  }
  [[nodiscard]] Sink into(std::string& text) const {
    return [&text](std::span<const std::byte> bytes) { text += textOf(bytes); };
  }
  [[nodiscard]] std::size_t sent(const std::string& method, const std::string& query = {}) const {
    std::size_t count = 0;
    for (const auto& request : server_->requests()) {
      if (request.method == method && request.query.find(query) != std::string::npos) ++count;
    }
    return count;
  }
  [[nodiscard]] std::size_t askedFor(const std::string& range) const {
    std::size_t count = 0;
    for (const auto& request : server_->requests()) {
      const std::string* field = request.header("Range");
      if (field != nullptr && *field == range) ++count;
    }
    return count;
  }
};

}  // namespace varo
