#pragma once

#include "varo/c/values.h"
#include "varo/metadata.h"
#include "varo/outcome.h"

#include <cstddef>
#include <map>
#include <string>
#include <vector>

namespace varo::capi {

/// A text of the caller; empty for NULL.
[[nodiscard]] std::string textFrom(const char* text);

/// Entries of the caller, `argument` by name. A failure names the first that cannot be used.
[[nodiscard]] Outcome<Filter> filterFrom(const varo_entry* terms, std::size_t count);
[[nodiscard]] Outcome<Metadata> metadataFrom(const varo_entry* entries, std::size_t count,
                                             const char* argument);
[[nodiscard]] Outcome<std::map<std::string, std::string>> pairsFrom(const varo_pair* pairs,
                                                                    std::size_t count,
                                                                    const char* argument);

/// Entries that refer to the texts of `metadata`.
[[nodiscard]] std::vector<varo_entry> entriesOf(const Metadata& metadata);

}  // namespace varo::capi
