#pragma once

#include "varo/units.h"

#include <cstddef>
#include <filesystem>
#include <functional>
#include <optional>
#include <span>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

namespace varo {

/// Fills the front of `buffer` and returns how many bytes it put there; 0 at the end, nothing where
/// it cannot go on, which fails the transfer with `Kind::kLocalFile`. Called on a thread of the
/// library, one call at a time; it may block, but not wait for its own transfer. It is not called
/// again after its end, nor once the outcome or the end of the handle is there.
using Reader = std::function<std::optional<std::size_t>(std::span<std::byte> buffer)>;

/// Where the bytes of an upload come from. Any of them may have zero bytes where the service allows
/// it.
class Source {
 public:
  struct Read {
    Reader read;
    /// None: not known before the end.
    std::optional<Bytes> size;
  };
  using Content = std::variant<std::filesystem::path, std::vector<std::byte>, Read>;

  /// The regular file at `path`, read piece by piece as it is sent. It must not change before the
  /// end; one that shrinks is a failure, and its bytes are never taken for whole.
  [[nodiscard]] static Source file(std::filesystem::path path) { return Source(std::move(path)); }

  /// These bytes, which stay in memory until the end.
  [[nodiscard]] static Source bytes(std::vector<std::byte> bytes) {
    return Source(std::move(bytes));
  }
  /// A copy of the bytes of `text`.
  [[nodiscard]] static Source text(std::string_view text) {
    const auto bytes = std::as_bytes(std::span(text));
    return Source(std::vector<std::byte>(bytes.begin(), bytes.end()));
  }

  /// What `read` gives, `size` bytes. More or fewer of them are a failure. They are first brought
  /// into a nameless temporary file, so that a chunk can be sent again.
  [[nodiscard]] static Source reader(Bytes size, Reader read) {
    return Source(Read{std::move(read), size});
  }
  /// The same, with a length that nobody knows before.
  [[nodiscard]] static Source reader(Reader read) { return Source(Read{std::move(read), {}}); }
  static Source reader(Bytes size, std::nullptr_t) = delete;
  static Source reader(std::nullptr_t) = delete;

  [[nodiscard]] const Content& content() const& noexcept { return content_; }
  [[nodiscard]] Content&& content() && noexcept { return std::move(content_); }

 private:
  explicit Source(Content content) : content_(std::move(content)) {}

  Content content_;
};

/// Takes the bytes of a download, in order and without a gap, as they are received. Called on a
/// thread of the library, one call at a time; it may block, but not wait for its own transfer. It
/// is not called any more once the outcome or the end of the handle is there. What it throws ends
/// the transfer with `Kind::kLocalFile`.
using Sink = std::function<void(std::span<const std::byte> bytes)>;

/// Where the bytes of a download go: a file, which is there complete or not at all, or a function.
using Destination = std::variant<std::filesystem::path, Sink>;

/// What to do where the file of a `Destination` is there already.
enum class IfExists : std::uint8_t {
  kFail,     ///< `Kind::kConflict`, nothing is fetched
  kReplace,  ///< by the new file, in one step, at the end
  kKeep,     ///< nothing is fetched, and the file that is there is the outcome
  kNumber,   ///< another name: "photo (1).jpg"
};

}  // namespace varo
