#pragma once

#include "Platform/Foundation/Error.h"
#include "Platform/Network/HttpTransport.h"

#include <atomic>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace varo::test {

/// Keeps what a transport hands on, or refuses it. Read it when the request has ended.
class CollectingReceiver final : public platform::BodyReceiver {
 public:
  platform::Result<void> begin(int status, const std::vector<platform::HttpHeader>& /*headers*/,
                               std::optional<std::uint64_t> expected) override {
    ++calls;
    begun += std::to_string(status) + (expected ? " " + std::to_string(*expected) : "") + ";";
    return {};
  }
  platform::Result<void> write(std::string_view piece) override {
    ++calls;
    if (refuses) return platform::Error::make("Test", 7, "refused");
    bytes += piece;
    return {};
  }

  bool refuses = false;
  std::atomic<int> calls{0};
  std::string begun, bytes;
};

}  // namespace varo::test
