#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace varo::sandbox {

/// Numbers of parts are from 1 to this.
inline constexpr std::uint64_t kMostParts = 10'000;

/// A part as a client names it to complete an upload.
struct NamedPart {
  std::uint64_t number = 0;
  std::string entityTag;  ///< Without quotes.
};

/// Reads the document that completes an upload, piece by piece: `<CompleteMultipartUpload>` with a
/// `<Part>` each, of which "PartNumber" and "ETag" are looked at. Used by one thread.
class CompletionList {
 public:
  CompletionList();
  ~CompletionList();
  CompletionList(const CompletionList&) = delete;
  CompletionList& operator=(const CompletionList&) = delete;

  /// False when the document is wrong.
  [[nodiscard]] bool push(std::string_view piece);
  /// The parts in their order, at least one; nothing when the document is wrong or has not ended.
  [[nodiscard]] std::optional<std::vector<NamedPart>> end();

 private:
  struct Parser;
  const std::unique_ptr<Parser> parser_;
};

}  // namespace varo::sandbox
