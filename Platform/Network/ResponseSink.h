#pragma once

#include "Platform/Foundation/BufferPool.h"
#include "Platform/Foundation/Data.h"
#include "Platform/Foundation/Result.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

namespace varo::platform {

/// Collects a response body: in memory while it is small, else in a nameless file, so that a body
/// of any size needs one buffer. Not thread-safe.
class ResponseSink {
 public:
  /// Files are made in `spoolDirectory`, or in the directory for temporary files where that is
  /// empty or none can be created in it. `gatherSize`, in bytes, is how much is collected for one
  /// write. A body of more than half a buffer of
  /// `buffers` is collected in one of these; null: in memory of its own.
  ResponseSink(std::string spoolDirectory, std::size_t gatherSize,
               std::shared_ptr<BufferPool> buffers = nullptr);

  /// One whose body goes into `file` from its position `begin` on, with the first byte.
  ResponseSink(std::shared_ptr<File> file, std::uint64_t begin, std::size_t gatherSize);

  /// What the server says will come; a large body goes to a file from its first byte.
  [[nodiscard]] Result<void> expect(std::uint64_t size);

  /// Takes the next bytes. Errors: domain "POSIX", with the directory; a full disk is ENOSPC. Where
  /// neither directory takes a file, the error is the first one's and its text says both.
  [[nodiscard]] Result<void> write(std::string_view bytes);

  /// Bytes taken so far.
  [[nodiscard]] std::uint64_t size() const noexcept { return spooled_ + buffer_->size(); }

  /// Up to `most` of the bytes taken so far, from `offset` on, which is not behind them. More may
  /// be taken while they are read. Errors as `write`.
  [[nodiscard]] Result<Data> look(std::uint64_t offset, std::size_t most);

  /// Hands over the body and is empty again; with a file of the caller's it takes nothing more.
  /// Errors as `write`.
  [[nodiscard]] Result<Data> take();

 private:
  [[nodiscard]] Result<void> startSpooling();
  [[nodiscard]] Result<void> flush();

  const std::string spoolDirectory_;
  const std::size_t gatherSize_;
  const std::shared_ptr<BufferPool> buffers_;
  /// All of a small body, or what comes behind the bytes in the file. Never null.
  std::shared_ptr<std::string> buffer_;
  std::shared_ptr<File> file_;
  const std::uint64_t begin_ = 0;  // position of the body in the file
  std::uint64_t spooled_ = 0;      // bytes in the file
};

}  // namespace varo::platform
