#pragma once

#include "tests/support/Files.h"
#include "tests/support/SandboxFixture.h"
#include "varo/client.h"

#include <span>
#include <string>

namespace varo::test {

inline std::string textOf(std::span<const std::byte> bytes) {
  return {reinterpret_cast<const char*>(bytes.data()), bytes.size()};
}

/// A typed client of a sandbox.
class FileClientFixture : public sandbox::SandboxTest {
 protected:
  FileClient client() {
    return FileClient::create({.url = server_->url() + "/",
                               .chunkSize = 64_KiB,
                               .retry = {.attempts = 1}})  // tests look at the first failure
        .value();
  }

  [[nodiscard]] std::string path(const std::string& name) const { return directory_ + "/" + name; }
};

}  // namespace varo::test
