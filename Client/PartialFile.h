#pragma once

#include "Platform/Foundation/Data.h"
#include "Platform/Foundation/Mutex.h"
#include "Platform/Foundation/Value.h"
#include "Platform/Network/HttpTransport.h"
#include "Platform/Network/ResponseSink.h"
#include "varo/failure.h"
#include "varo/files.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace varo::detail {

/// The bytes of a download over all its runs, in a nameless file, and of which object they are.
///
/// The first run asks for the file, or for the range that is wanted. A later one asks for what is
/// missing, on the condition that it is still the same object (If-Range, RFC 9110, 13.1.5). Where
/// the object has changed, or has no strong entity tag to tell by, it begins anew.
///
/// Thread-safe: written on the thread that moves bytes, read on others.
class PartialFile : public std::enable_shared_from_this<PartialFile> {
 public:
  /// `about` names the download in failures. The nameless file is made in `directory`; empty: the
  /// one for temporary files.
  PartialFile(std::string about, const std::string& directory, std::optional<FileRange> range);

  /// What the request of the next run needs. What comes for an earlier run changes nothing from now
  /// on. `onBytes` is called after bytes have come, on the thread that moves them: how many there
  /// are, and how many there will be; 0 where that is not known.
  using OnBytes = std::function<void(std::uint64_t done, std::uint64_t total)>;
  struct Run {
    platform::Dictionary headers;
    std::shared_ptr<platform::BodyReceiver> receiver;
  };
  [[nodiscard]] Run beginRun(OnBytes onBytes);

  /// Whether another run can get what is missing: nothing was handed out yet, or it can be told
  /// that the bytes are still those of the same object.
  [[nodiscard]] bool canGoOn() const;
  /// Whether nothing is missing.
  [[nodiscard]] bool isComplete() const;
  /// What was wrong with the bytes, where something was.
  [[nodiscard]] std::optional<Failure> failure() const;

  /// Up to `most` bytes from `offset` on, none where they have not come yet. Whoever got some keeps
  /// them: from now on nothing begins anew.
  [[nodiscard]] platform::Result<platform::Data> handOut(std::uint64_t offset, std::size_t most);
  /// All bytes, once. A failure where some are missing.
  [[nodiscard]] platform::Result<platform::Data> take();

 private:
  class Receiver;

  struct Count {
    std::uint64_t done = 0;
    std::uint64_t total = 0;
  };

  [[nodiscard]] platform::Result<void> begin(std::uint64_t run, int status,
                                             const std::vector<platform::HttpHeader>& headers,
                                             std::optional<std::uint64_t> expected);
  [[nodiscard]] platform::Result<Count> write(std::uint64_t run, std::string_view bytes);
  [[nodiscard]] platform::Result<void> beginPart(std::string_view contentRange,
                                                 std::optional<std::uint64_t> expected)
      VARO_REQUIRES(mutex_);
  [[nodiscard]] platform::Result<void> beginWhole(std::optional<std::uint64_t> expected)
      VARO_REQUIRES(mutex_);
  void startOver() VARO_REQUIRES(mutex_);
  [[nodiscard]] platform::ErrorPtr fail(const std::string& what) VARO_REQUIRES(mutex_);
  /// Notes why bytes could not be stored: of that the transport's error keeps the text alone.
  [[nodiscard]] platform::Result<void> noted(platform::Result<void> stored) VARO_REQUIRES(mutex_);
  /// Of the first byte that is missing, in the whole object.
  [[nodiscard]] std::uint64_t position() const VARO_REQUIRES(mutex_);
  /// Of the last byte that is wanted; none: of the object's last.
  [[nodiscard]] std::optional<std::uint64_t> lastWanted() const;

  const std::string about_;
  const std::string directory_;
  const std::optional<FileRange> range_;

  mutable platform::Mutex mutex_;
  std::optional<platform::ResponseSink> bytes_ VARO_GUARDED_BY(mutex_);
  /// How many there will be in all; none where no response has said it.
  std::optional<std::uint64_t> total_ VARO_GUARDED_BY(mutex_);
  /// Of the whole object, where it is known.
  std::optional<std::int64_t> objectSize_ VARO_GUARDED_BY(mutex_);
  /// A strong one, or empty.
  std::string entityTag_ VARO_GUARDED_BY(mutex_);
  bool handedOut_ VARO_GUARDED_BY(mutex_) = false;
  std::uint64_t run_ VARO_GUARDED_BY(mutex_) = 0;
  std::optional<Failure> failure_ VARO_GUARDED_BY(mutex_);
};

}  // namespace varo::detail
