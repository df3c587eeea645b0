#pragma once

#include "Binary/Binary/Utils/TransferPolicy.h"
#include "Platform/Foundation/Result.h"
#include "Platform/Foundation/Value.h"
#include "Platform/Logging/LogSink.h"
#include "varo/source.h"

#include <array>
#include <chrono>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

/// The values that options take. Errors are those of `usageError`: they quote what was typed and
/// say what was expected.
namespace varo::cli {

/// Seconds, with fractions, from a millisecond to a day.
[[nodiscard]] platform::Result<std::chrono::milliseconds> parseSeconds(const std::string& text);
[[nodiscard]] platform::Result<std::uint16_t> parsePort(const std::string& text);
[[nodiscard]] platform::Result<platform::LogLevel> parseLogLevel(const std::string& text);
[[nodiscard]] platform::Result<binary::TransferPolicy> parsePolicy(const std::string& text);
/// Scheme (http or https), host and port of a store; a slash at the end is dropped.
[[nodiscard]] platform::Result<std::string> parseStoreUrl(const std::string& text);
/// The base URL of a service; slashes at its end are dropped.
[[nodiscard]] platform::Result<std::string> parseBaseUrl(const std::string& text);
/// How many transfers may run at once.
[[nodiscard]] platform::Result<int> parseParallel(const std::string& text);
/// How often a request is repeated; 0 for never.
[[nodiscard]] platform::Result<int> parseRetries(const std::string& text);
/// fail, replace, keep or number.
[[nodiscard]] platform::Result<IfExists> parseIfExists(const std::string& text);
/// What `parseIfExists` takes.
inline constexpr std::array<std::string_view, 4> kIfExistsNames{"fail", "replace", "keep",
                                                                "number"};
/// Bytes; see `parseByteCount`.
[[nodiscard]] platform::Result<std::int64_t> parseChunkSize(const std::string& text);
/// The size of a part of an upload to a store, 5 MiB to 5 GiB.
[[nodiscard]] platform::Result<std::int64_t> parsePartSize(const std::string& text);

/// What ends the options: words behind it are arguments, whatever they begin with.
inline constexpr std::string_view kEndOfOptions = "--";

/// The JSON object in the file at `path`, which may be a pipe, of a few MiB at most.
[[nodiscard]] platform::Result<platform::Dictionary> readJsonFile(const std::string& path);
/// The same of a download that ends in a file, so not of one that streams.
[[nodiscard]] platform::Result<platform::Dictionary> readBlobConfiguration(const std::string& path);

/// `words` with each of the options `lists` before every pair that belongs to it: "--meta a=1 b=2"
/// becomes "--meta a=1 --meta b=2". Left alone, a list would swallow every word up to the next
/// option.
[[nodiscard]] std::vector<std::string> withListsSpelledOut(const std::vector<std::string>& words,
                                                           std::span<const std::string> lists);

}  // namespace varo::cli
