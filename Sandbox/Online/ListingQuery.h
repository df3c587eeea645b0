#pragma once

#include "Sandbox/Online/StoreError.h"

#include <cstddef>
#include <string>
#include <string_view>
#include <variant>

namespace varo::sandbox {

/// Entries that a page of a list has at most, and unless fewer are asked for.
inline constexpr std::size_t kMostListed = 1000;

/// The number under the parameter `name`: `kMostListed` where there is none or a larger one.
[[nodiscard]] std::variant<std::size_t, StoreError> listedAtMost(const HttpRequest& request,
                                                                 std::string_view name);

/// What a request for a list of a bucket's objects asks for.
struct ListingQuery {
  std::string bucket;  ///< With a slash behind it; empty: all keys.
  std::string prefix;
  std::string delimiter;  ///< Empty: nothing is grouped.
  std::size_t most = kMostListed;
  /// The least key that the page may have. Within the bucket, as all keys here are.
  std::string from;
  bool isUrlEncoded = false;
};

[[nodiscard]] std::variant<ListingQuery, StoreError> listingQueryOf(const HttpRequest& request);

/// Where the next page begins, in the shape of such stores' tokens: whoever puts one into a query
/// has to percent-encode it.
[[nodiscard]] std::string continuationToken(std::string_view from);

/// A key as lists have it with "encoding-type=url": a blank is "+", and a slash stays.
[[nodiscard]] std::string listingEncoded(std::string_view key);

}  // namespace varo::sandbox
