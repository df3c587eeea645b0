#pragma once

#include "Platform/Foundation/Value.h"

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace varo::binary {

/// What tells one state of an object on a server from another (RFC 9110, section 8.8), as far as
/// the server says it. A partial file can be resumed while the server still has this object.
struct ObjectValidator {
  /// More than this is no validator's text, bytes.
  static constexpr std::size_t kMaxText = 4096;

  /// As sent, with its quotes and, where it is weak, "W/"; empty for none.
  std::string entityTag = {};
  std::string lastModified = {};  // as sent; empty for none
  std::int64_t total = 0;         // bytes of the whole object; 0 while unknown
  /// Whether "Last-Modified" is a strong validator: the response's "Date" is later by a second or
  /// more.
  bool isLastModifiedStrong = false;

  /// Whether it says nothing.
  [[nodiscard]] bool isEmpty() const noexcept {
    return entityTag.empty() && lastModified.empty() && total == 0;
  }
  [[nodiscard]] bool hasStrongTag() const noexcept;
  /// Whether it tells two objects of one size apart.
  [[nodiscard]] bool isComparable() const noexcept {
    return !entityTag.empty() || !lastModified.empty();
  }

  /// What "If-Range" may say (RFC 9110, section 13.1.5): the strong tag, or else, where there is no
  /// tag at all, a strong "Last-Modified". Empty for none.
  [[nodiscard]] std::string ifRange() const;

  /// One line of text, for keeping beside a partial file: a JSON object. Empty where it says
  /// nothing. A field that is too long to be kept is left out.
  [[nodiscard]] std::string text() const;
  /// What `text` made. None for anything else: a file that has been damaged has no validator.
  [[nodiscard]] static std::optional<ObjectValidator> parse(std::string_view text);

  friend bool operator==(const ObjectValidator&, const ObjectValidator&) = default;
};

/// Whether two entity tags name the same object by RFC 9110's weak comparison: "W/" does not count.
[[nodiscard]] bool tagsMatchWeakly(std::string_view left, std::string_view right) noexcept;
/// Whether "Date" is later than "Last-Modified" by a second or more. False where one of them is no
/// date in the preferred form ("Sun, 06 Nov 1994 08:49:37 GMT").
[[nodiscard]] bool isLaterDate(std::string_view date, std::string_view lastModified) noexcept;

}  // namespace varo::binary
