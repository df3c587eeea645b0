#pragma once

#include "Cli/Arguments/CommandArguments.h"

#include <string>

namespace varo::cli {

/// An object or the beginning of keys in a bucket: "s3://BUCKET/KEY".
struct StoreAddress {
  std::string bucket;
  /// As people write it; may be empty.
  std::string key;

  [[nodiscard]] std::string text() const { return "s3://" + bucket + "/" + key; }
};

/// Errors: that of `usageError`.
[[nodiscard]] platform::Result<StoreAddress> parseStoreAddress(const std::string& text);

/// A store that is addressed directly, and the keys to sign with.
struct StoreArguments {
  /// Without a bucket where none was given.
  StoreAddress address;
  std::string endpoint;
  std::string region;
  /// Empty: requests are not signed.
  std::string accessKey;
  std::string secretKey;
  std::string sessionToken;

  [[nodiscard]] bool isGiven() const { return !address.bucket.empty(); }
};

enum class NeedsKey { kNo, kYes };

/// Declares the argument ADDRESS and the options of the store.
void declareStore(CommandArguments& arguments, StoreArguments& store,
                  Presence presence = Presence::kRequired);

/// The same without the argument.
void declareStoreOptions(CommandArguments& arguments, StoreArguments& store);

/// Takes from the environment what no option gives, and refuses what is missing then. To be called
/// when the arguments have their values.
void completeStore(const std::string& command, StoreArguments& store, NeedsKey needsKey);

}  // namespace varo::cli
