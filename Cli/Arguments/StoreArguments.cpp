#include "Cli/Arguments/StoreArguments.h"

#include "Cli/Arguments/Arguments.h"
#include "Cli/Arguments/OptionValues.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstddef>
#include <cstdlib>
#include <string_view>

namespace varo::cli {

using platform::Result;

namespace {

constexpr std::string_view kScheme = "s3://";
constexpr std::string_view kUsualRegion = "us-east-1";

/// As stores have it; `S3::bucket`.
constexpr std::size_t kShortestBucket = 3;
constexpr std::size_t kLongestBucket = 63;

bool isOfBucket(char c) {
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '-' ||
         c == '.' || c == '_';
}

void complete(std::string& value, const char* variable) {
  const char* given = std::getenv(variable);
  if (value.empty() && given != nullptr) value = given;
}

}  // namespace

Result<StoreAddress> parseStoreAddress(const std::string& text) {
  const bool hasScheme = text.starts_with(kScheme);
  const std::string rest = hasScheme ? text.substr(kScheme.size()) : std::string();
  const std::size_t slash = rest.find('/');
  const std::string bucket = rest.substr(0, slash);
  if (bucket.empty()) {
    return usageError(fmt::format("'{}' is not of the form s3://BUCKET/KEY", text));
  }
  if (bucket.size() < kShortestBucket || bucket.size() > kLongestBucket ||
      !std::all_of(bucket.begin(), bucket.end(), isOfBucket)) {
    return usageError(fmt::format(
        "'{}' is no name of a bucket: 3 to 63 letters, digits, '-', '.' and '_'", bucket));
  }
  return StoreAddress{bucket, slash == std::string::npos ? "" : rest.substr(slash + 1)};
}

void declareStore(CommandArguments& arguments, StoreArguments& store, Presence presence) {
  arguments.parsed("ADDRESS", store.address, parseStoreAddress, presence);
  declareStoreOptions(arguments, store);
}

void declareStoreOptions(CommandArguments& arguments, StoreArguments& store) {
  arguments.parsed("--endpoint", store.endpoint, parseStoreUrl);
  arguments.text("--region", store.region);
  arguments.text("--access-key", store.accessKey);
  arguments.parsed("--secret-key-file", store.secretKey,
                   [](const std::string& path) { return readSecretFile(path, "secret key"); });
}

void completeStore(const std::string& command, StoreArguments& store, NeedsKey needsKey) {
  if (needsKey == NeedsKey::kYes && store.address.key.empty()) {
    CommandArguments::reject(command, store.address.text() + " has no key");
  }
  complete(store.endpoint, "VARO_ENDPOINT");
  auto endpoint = parseStoreUrl(store.endpoint);
  if (!endpoint) {
    CommandArguments::reject(command,
                             "needs --endpoint or VARO_ENDPOINT: scheme, host and port of a store");
  }
  store.endpoint = std::move(endpoint).value();
  complete(store.region, "VARO_REGION");
  if (store.region.empty()) store.region = kUsualRegion;
  complete(store.accessKey, "VARO_ACCESS_KEY");
  complete(store.sessionToken, "VARO_SESSION_TOKEN");
  complete(store.secretKey, "VARO_SECRET_KEY");
  if (!store.accessKey.empty() && store.secretKey.empty()) {
    CommandArguments::reject(command,
                             "an access key needs its secret, from --secret-key-file or "
                             "VARO_SECRET_KEY");
  }
}

}  // namespace varo::cli
