#include "Client/SourceData.h"

#include "Client/Failures.h"
#include "Client/Running.h"
#include "Platform/Foundation/File.h"
#include "Platform/Foundation/Runtime.h"
#include "Platform/Network/HttpTransportError.h"

#include <fmt/format.h>

#include <cstddef>
#include <exception>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <utility>
#include <variant>
#include <vector>

namespace varo::detail {

using platform::Data;
using platform::File;

namespace {

constexpr std::size_t kPiece = std::size_t{256} * 1024;

/// Reads a source to its end.
class Spool {
 public:
  Spool(const Source::Read& source, const std::string& about, RunningBase& handle,
        std::stop_token stop)
      : source_(source), about_(about), handle_(handle), stop_(std::move(stop)) {}

  [[nodiscard]] Outcome<Data> read() {
    if (source_.read == nullptr) {
      return failureOf(Kind::kInvalidArgument, about_ + ": the source has an empty reader");
    }
    std::error_code none;  // creating the file will tell
    auto file = File::createUnnamed(std::filesystem::temp_directory_path(none).string());
    if (!file) return failureFrom(file.error(), about_);
    std::vector<std::byte> buffer(kPiece);
    std::uint64_t size = 0;
    for (;;) {
      auto count = piece(buffer);
      if (!count) return std::move(count).error();
      if (*count == 0) break;
      const std::string_view bytes(reinterpret_cast<const char*>(buffer.data()), *count);
      if (auto written = (*file)->writeAt(size, bytes); !written) {
        return failureFrom(written.error(), about_);
      }
      size += *count;
      if (source_.size && size > source_.size->count) break;
    }
    if (source_.size && size != source_.size->count) {
      return failed(fmt::format("the reader gave {} bytes where {} were announced",
                                size > source_.size->count ? "more" : fmt::to_string(size),
                                source_.size->count));
    }
    return Data::fromFileRegion(*file, 0, size);
  }

 private:
  [[nodiscard]] Failure failed(std::string_view why) const {
    return failureOf(Kind::kLocalFile, fmt::format("{}: {}", about_, why));
  }

  [[nodiscard]] Outcome<std::size_t> piece(std::span<std::byte> buffer) const {
    Outcome<std::size_t> count = failureOf(Kind::kCancelled, about_ + ": it was cancelled");
    if (stop_.stop_requested()) return count;
    if (platform::Runtime::shared().isShutDown()) {
      return failureOf(Kind::kShutDown, about_ + ": the library has been shut down");
    }
    // Not called where the handle has gone.
    static_cast<void>(handle_.move([&] { count = call(buffer); }));
    return count;
  }

  /// How many bytes the reader put into the buffer; a failure for what a reader must not do.
  [[nodiscard]] Outcome<std::size_t> call(std::span<std::byte> buffer) const {
    std::optional<std::size_t> count;
    try {
      count = source_.read(buffer);
    } catch (const std::exception& thrown) {
      return failed(fmt::format("the reader threw: {}", thrown.what()));
    } catch (...) {  // an application's code may throw anything
      return failed("the reader threw");
    }
    if (!count) return failed("the reader could not go on");
    if (*count > buffer.size()) return failed("the reader gave more than there was room for");
    return *count;
  }

  const Source::Read& source_;
  const std::string& about_;
  RunningBase& handle_;
  const std::stop_token stop_;
};

}  // namespace

Outcome<Data> dataFrom(Source source, const std::string& about, RunningBase& handle,
                       const std::stop_token& stop) {
  Source::Content content = std::move(source).content();
  if (const auto* path = std::get_if<std::filesystem::path>(&content)) {
    auto file = File::openUnchanging(path->string());
    if (!file) return failureFrom(file.error(), about);
    const auto size = (*file)->size();
    if (!size) return failureFrom(size.error(), about);
    return Data::fromFileRegion(std::move(file).value(), 0, *size);
  }
  if (const auto* read = std::get_if<Source::Read>(&content)) {
    return Spool(*read, about, handle, stop).read();
  }
  return Data::copyOf(std::get<std::vector<std::byte>>(content));
}

platform::Result<void> readPieces(const Data& data, const std::stop_token& stop,
                                  const std::function<void(std::string_view piece)>& take) {
  return data.forEachPiece([&](std::string_view piece) -> platform::Result<void> {
    if (stop.stop_requested()) {
      return platform::makeTransportError(platform::HttpTransportError::kCancelled,
                                          "The transfer was cancelled.");
    }
    take(piece);
    return {};
  });
}

}  // namespace varo::detail
