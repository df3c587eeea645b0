#pragma once

#include "Platform/Foundation/Result.h"

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace varo::platform::xml {

/// Domain of the errors below, and their codes. The text of an error holds the line. None of them
/// goes away by trying again.
inline constexpr std::string_view kErrorDomain = "XML";
inline constexpr std::int64_t kNotXml = 1;
inline constexpr std::int64_t kTooDeep = 2;
inline constexpr std::int64_t kTooManyElements = 3;
/// A document type, which could define entities without end.
inline constexpr std::int64_t kHasDocumentType = 4;

/// An element, in UTF-8. Attributes are dropped.
struct Element {
  /// Without a namespace's prefix.
  std::string name;
  /// All text that stands directly in it.
  std::string text;
  std::vector<Element> children;

  /// The first child of that name, or null.
  [[nodiscard]] const Element* child(std::string_view childName) const noexcept;
  /// Its text; empty where there is none.
  [[nodiscard]] std::string textOf(std::string_view childName) const;
};

/// Beyond one of these a text is an error; what was parsed by then is freed.
struct Limits {
  std::size_t depth = 16;
  std::size_t elements = std::size_t{64} << 10U;
};

/// The root of the document that is the whole of `text` (XML 1.0). Nothing outside is fetched or
/// looked up. Thread-safe.
[[nodiscard]] Result<Element> parse(std::string_view text, const Limits& limits = {});

/// `text` as the content of an element.
[[nodiscard]] std::string escaped(std::string_view text);

}  // namespace varo::platform::xml
