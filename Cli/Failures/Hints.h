#pragma once

#include "Platform/Network/TransportFailure.h"

#include <cstdint>
#include <string_view>

namespace varo::cli {

/// What an operation was about: the same error asks for other words in each.
enum class Topic { kFile, kBlob, kObject };

/// What to do after an error of this domain and code; empty where nothing useful can be said. The
/// code of another domain never gets it.
[[nodiscard]] std::string_view hintFor(Topic topic, std::string_view domain, std::int64_t code);
/// What to do after a request that got no response.
[[nodiscard]] std::string_view hintFor(Topic topic, platform::TransportFailure failure);

/// What to do about a kind of failure, by its name, where nothing better is known.
[[nodiscard]] std::string_view hintForKind(Topic topic, std::string_view kind);

}  // namespace varo::cli
