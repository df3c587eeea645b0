#pragma once

#include <boost/json/fwd.hpp>

#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <variant>
#include <vector>

namespace varo::sandbox {

/// Bytes in the largest object that can be generated.
inline constexpr std::uint64_t kLargestBlob = std::uint64_t{1} << 50;

/// Which record's binary column is meant, as a client's URL says it.
struct BlobKey {
  std::string scope;
  std::string object;
  /// Columns and values; their order does not matter.
  std::vector<std::pair<std::string, std::string>> primaryKeys;
};

/// A content that follows from two numbers; see `GeneratedBytes`.
struct GeneratedContent {
  std::uint64_t size = 0;  ///< Bytes, up to `kLargestBlob`.
  std::uint64_t seed = 0;
};

/// What the blob service holds for a key, and how it responds.
struct BlobObject {
  enum class Mode {
    kKnownTotal,    ///< Ranges, with the size of the whole in "Content-Range".
    kUnknownTotal,  ///< Ranges, with "*" instead; behind the end an empty one.
    kWhole,         ///< All bytes with status 200, whatever range is asked for.
    kBase64,        ///< The same in JSON: {"d": {"results": "..."}}.
    kError,         ///< {"d": {"error": true, "msg": ...}} with status 200.
  };

  /// Absent: the bytes that were stored under the key.
  std::optional<GeneratedContent> generated{};
  Mode mode = Mode::kKnownTotal;
  std::string message = "the object cannot be read";  ///< Of `kError`.
  /// Sent along in "X-Pelmar-Device-Log-Level" with every response; empty: no such header.
  std::string logLevel{};
};

/// `object` changed as the entries "size", "seed", "mode" ("known", "unknown", "whole", "base64",
/// "error"), "msg" and "logLevel" of `entries` say, or which of them is unknown or has a wrong
/// value. A size makes the content a generated one.
[[nodiscard]] std::variant<BlobObject, std::string> blobObjectFrom(
    const boost::json::object& entries, BlobObject object);

/// The entries that `blobObjectFrom` makes the same object of.
[[nodiscard]] boost::json::object entriesOf(const BlobObject& object);

}  // namespace varo::sandbox
