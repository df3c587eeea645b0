#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

namespace varo::sandbox {

/// The body of a request while it arrives. It can be read once, by the thread that serves it.
class RequestBody {
 public:
  /// Takes a piece of the body; false ends the reading.
  using Sink = std::function<bool(std::string_view piece)>;
  enum class End {
    kComplete,
    kRefused,   ///< The sink wanted no more.
    kBroken,    ///< The connection failed or the framing is wrong.
    kTooLarge,  ///< Longer than the server accepts.
  };

  virtual ~RequestBody() = default;

  /// Passes the body to `sink` in large pieces.
  virtual End readInto(const Sink& sink) = 0;

  /// Ends the body after so many bytes as one that broke off; no more is read then. Before it is
  /// read, of the connection's own body only.
  virtual void cutAfter(std::uint64_t) {}

  /// The whole body, unless it is broken or longer than `limit` bytes.
  [[nodiscard]] std::optional<std::string> readText(std::size_t limit);
};

}  // namespace varo::sandbox
