#pragma once

#include <chrono>
#include <initializer_list>
#include <string>
#include <string_view>

/// Texts that both kinds of signed requests share (AWS Signature Version 4).
namespace varo::binary::signing {

/// In UTC, as signatures have it: "yyyyMMdd".
[[nodiscard]] std::string dateText(std::chrono::system_clock::time_point time);
/// The same to the second: "yyyyMMdd'T'HHmmss'Z'".
[[nodiscard]] std::string timeText(std::chrono::system_clock::time_point time);

/// What a key is good for: "date/region/service/aws4_request".
[[nodiscard]] std::string scopeText(std::string_view date, std::string_view region,
                                    std::string_view service);
/// What the signature covers. `requestHash`: the canonical request's SHA-256 in hexadecimal.
[[nodiscard]] std::string stringToSign(std::string_view time, std::string_view scope,
                                       std::string_view requestHash);

/// One after the other, in a text that is allocated once.
[[nodiscard]] std::string joined(std::initializer_list<std::string_view> parts);

}  // namespace varo::binary::signing
