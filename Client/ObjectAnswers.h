#pragma once

#include "Platform/Foundation/Xml.h"
#include "Platform/Network/HttpTransport.h"
#include "varo/objects.h"
#include "varo/outcome.h"

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace varo::detail {

/// The value of the first header of that name, in any letter case.
[[nodiscard]] std::optional<std::string> headerOf(const platform::HttpResponse& response,
                                                  std::string_view name);
/// The whole number that is all of `text`; none where it is negative or no number.
[[nodiscard]] std::optional<std::uint64_t> sizeIn(std::string_view text);
/// An entity tag without its quotes.
[[nodiscard]] std::string unquoted(std::string_view entityTag);

/// What the headers say; its size, which has another meaning in each response, is not among it.
[[nodiscard]] ObjectInfo infoFrom(const platform::HttpResponse& response, const ObjectKey& key);

/// The "Code" of the XML of a refusal; empty where it has none.
[[nodiscard]] std::string codeIn(const platform::HttpResponse& response);

/// The refusal that a response is, by the "Code" of its XML if it has one, else by its status.
/// `about` begins the message. `secret`, if it is not empty, stands nowhere in the failure.
[[nodiscard]] Failure refusalFrom(const platform::HttpResponse& response, std::string_view about,
                                  std::string_view secret);

/// The XML of a response whose root has this name. An "Error" is the failure that it says, with a
/// status of 200 too; anything else `Kind::kNotOurService`.
[[nodiscard]] Outcome<platform::xml::Element> xmlIn(const platform::HttpResponse& response,
                                                    std::string_view root, std::string_view about);

/// Of an answer that such a store does not give.
[[nodiscard]] Failure notAStore(const platform::HttpResponse& response, std::string_view about,
                                std::string_view what);

/// The most that a response may have which is read as a whole, in bytes. A page of a list has 1000
/// keys of up to 3 KiB.
inline constexpr std::uint64_t kLongestAnswer = std::uint64_t{16} << 20U;

}  // namespace varo::detail
