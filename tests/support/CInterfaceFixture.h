#pragma once

#include "tests/support/CTransfers.h"
#include "tests/support/SandboxFixture.h"
#include "varo/varo.h"

#include <chrono>
#include <string>
#include <utility>

namespace varo::test {

/// A client through the C interface, of a sandbox of its own; nothing is repeated.
class CInterfaceFixture : public sandbox::SandboxTest {
 protected:
  void SetUp() override {
    SandboxTest::SetUp();
    url_ = server_->url();
    options_.size = sizeof options_;
    options_.url = url_.c_str();
    options_.retry_attempts = 1;
    ASSERT_EQ(varo_files_create(&options_, &files_, nullptr), VARO_OK);
  }
  void TearDown() override { varo_files_free(files_); }

  /// The code of a creation with these options, and what its failure says.
  std::pair<varo_code, std::string> creation(const varo_options* options) {
    varo_files* files = nullptr;
    varo_failure* failure = nullptr;
    const varo_code code = varo_files_create(options, &files, &failure);
    EXPECT_EQ(code == VARO_OK, files != nullptr);
    const std::string message = failure != nullptr ? failure->message : "";
    varo_failure_free(failure);
    varo_files_free(files);
    return {code, message};
  }

  /// Has the server take the second chunk of an upload for ever.
  void holdSecondChunk() {
    server_->addFault({.match = {.path = "/bytes/", .skip = 1},
                       .action = {.stallAfter = 1, .stallFor = std::chrono::milliseconds(-1)}});
  }

  std::string url_;
  varo_options options_ = {};
  varo_files* files_ = nullptr;
  const varo_upload_options named_ = {.size = sizeof(varo_upload_options),
                                      .name = "a",
                                      .metadata = nullptr,
                                      .metadata_count = 0,
                                      .file_namespace = nullptr,
                                      .security_key = nullptr,
                                      .chunk_size = 60'000,
                                      .resume = nullptr,
                                      .on_place = nullptr,
                                      .user = nullptr,
                                      .bytes_per_second = 0};
  const std::string twoChunks_ = std::string(100'000, 'x');
};

}  // namespace varo::test
