#pragma once

#include <compare>
#include <cstddef>
#include <ostream>
#include <string>
#include <utility>

namespace varo {

/// A text that names one kind of thing. Two kinds cannot be swapped: a `FileId` is no `BlobId`, and
/// neither is made from a text without saying so.
template <typename Tag>
class Name {
 public:
  /// Names nothing.
  Name() = default;
  explicit Name(std::string text) : text_(std::move(text)) {}
  explicit Name(std::nullptr_t) = delete;

  [[nodiscard]] const std::string& text() const noexcept { return text_; }
  [[nodiscard]] bool empty() const noexcept { return text_.empty(); }

  friend bool operator==(const Name&, const Name&) = default;
  // NOLINTNEXTLINE(modernize-use-nullptr): clang-tidy 14 sees a 0 in it
  friend auto operator<=>(const Name&, const Name&) = default;
  friend std::ostream& operator<<(std::ostream& out, const Name& name) { return out << name.text_; }

 private:
  std::string text_;
};

/// A file on the service, as the service names it.
using FileId = Name<struct FileIdTag>;
/// How far an upload of a file has come, to go on there: a text that an application may keep. It
/// can hold a signed address, so keep it as you keep credentials.
using UploadPlace = Name<struct UploadPlaceTag>;
/// A blob of an offline database.
using BlobId = Name<struct BlobIdTag>;
/// An object of a store, as people write it: "photos/Ann 1.jpg". It is percent-encoded where an
/// address or a signature needs that.
using ObjectKey = Name<struct ObjectKeyTag>;
/// An upload of an object in parts that a store has begun and not ended.
using UploadId = Name<struct UploadIdTag>;

}  // namespace varo
