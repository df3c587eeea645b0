#pragma once

#include "Platform/Network/HttpTransport.h"

#include <atomic>
#include <cstdint>
#include <memory>
#include <utility>

namespace varo::cli {

/// How far something is: written on the threads that move bytes, which must not wait for a
/// terminal, and read on the main thread. A read may see one number anew and the other not yet.
struct ByteCount {
  std::atomic<std::uint64_t> done{0};
  std::atomic<std::uint64_t> total{0};  // 0 while unknown
};

/// A transport that passes everything on to another one, and counts while the bytes of a file are
/// received. The library's operations on files report nothing of that. Thread-safe.
class ReceiveMeter final : public platform::HttpTransport {
 public:
  ReceiveMeter(std::shared_ptr<platform::HttpTransport> next, std::shared_ptr<ByteCount> count)
      : next_(std::move(next)), count_(std::move(count)) {}

  /// Counts of requests whose response is stored somewhere in particular, which are those for
  /// files.
  std::shared_ptr<platform::HttpTransfer> send(platform::HttpRequest request,
                                               platform::HttpCompletion completion) override;
  void shutdown() override { next_->shutdown(); }

 private:
  const std::shared_ptr<platform::HttpTransport> next_;
  const std::shared_ptr<ByteCount> count_;
};

}  // namespace varo::cli
