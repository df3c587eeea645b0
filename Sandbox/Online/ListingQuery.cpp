#include "Sandbox/Online/ListingQuery.h"

#include "Platform/Foundation/Base64.h"
#include "Platform/Foundation/PercentCoding.h"
#include "Sandbox/Online/StoreOperation.h"
#include "Sandbox/Storage/KeyOrder.h"

#include <fmt/format.h>
#include <openssl/evp.h>

#include <algorithm>
#include <utility>

namespace varo::sandbox {
namespace {

// "+/" in Base64, so that every token has the two characters that a query must not have.
constexpr std::string_view kTokenMark = "\xFB\xFF";

StoreError invalidArgument(std::string message, std::string_view name, std::string value) {
  return {400,
          "InvalidArgument",
          std::move(message),
          {{"ArgumentName", std::string(name)}, {"ArgumentValue", std::move(value)}}};
}

std::string textOf(const HttpRequest& request, std::string_view name) {
  const std::string* value = request.parameter(name);
  return value == nullptr ? "" : *value;
}

/// Where a token says that the page begins.
std::optional<std::string> beginOf(std::string_view token) {
  auto bytes = platform::base64::decode(token);
  if (!bytes || !bytes->starts_with(kTokenMark)) return std::nullopt;
  return bytes->substr(kTokenMark.size());
}

}  // namespace

std::variant<std::size_t, StoreError> listedAtMost(const HttpRequest& request,
                                                   std::string_view name) {
  const std::string* value = request.parameter(name);
  if (value == nullptr) return kMostListed;
  const auto number = parseUnsigned(*value);
  if (!number) return invalidArgument("The number of entries is no number.", name, *value);
  return static_cast<std::size_t>(std::min<std::uint64_t>(*number, kMostListed));
}

std::variant<ListingQuery, StoreError> listingQueryOf(const HttpRequest& request) {
  if (const std::string type = textOf(request, "list-type"); type != "2") {
    return invalidArgument("There is version 2 of lists only.", "list-type", type);
  }
  ListingQuery query;
  query.bucket = bucketPrefixOf(request);
  query.prefix = textOf(request, "prefix");
  query.delimiter = textOf(request, "delimiter");
  auto most = listedAtMost(request, "max-keys");
  if (auto* problem = std::get_if<StoreError>(&most)) return std::move(*problem);
  query.most = std::get<std::size_t>(most);
  if (const std::string* encoding = request.parameter("encoding-type")) {
    if (*encoding != "url") {
      return invalidArgument("The encoding is not \"url\".", "encoding-type", *encoding);
    }
    query.isUrlEncoded = true;
  }
  if (const std::string* token = request.parameter("continuation-token")) {
    auto begin = beginOf(*token);
    if (!begin) return invalidArgument("Not a token of this store.", "continuation-token", *token);
    query.from = *std::move(begin);
  } else if (const std::string* last = request.parameter("start-after")) {
    // Of pages after the first one the token says it alone.
    query.from = firstBehindKey(*last);
  }
  return query;
}

std::string continuationToken(std::string_view from) {
  const std::string bytes = fmt::format("{}{}", kTokenMark, from);
  std::string token((bytes.size() + 2) / 3 * 4 + 1, '\0');  // the encoder ends it with a zero byte
  const int length = ::EVP_EncodeBlock(reinterpret_cast<unsigned char*>(token.data()),
                                       reinterpret_cast<const unsigned char*>(bytes.data()),
                                       static_cast<int>(bytes.size()));
  token.resize(static_cast<std::size_t>(length));
  return token;
}

std::string listingEncoded(std::string_view key) {
  std::string encoded;
  for (const char c : key) {
    if (c == ' ') {
      encoded += '+';
    } else if (c == '~') {
      encoded += "%7E";
    } else {
      encoded += platform::percentEncode({&c, 1}, "/*");
    }
  }
  return encoded;
}

}  // namespace varo::sandbox
