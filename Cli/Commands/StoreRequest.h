#pragma once

#include "Cli/Arguments/StoreArguments.h"
#include "Cli/Failures/FailureText.h"
#include "Cli/Run/Session.h"
#include "Platform/Foundation/Value.h"
#include "varo/objects.h"

#include <optional>
#include <string>

namespace varo::cli {

/// The help of what `declareStore` declares.
inline constexpr std::string_view kStoreHelp =
    R"(  ADDRESS                 s3://BUCKET/KEY; KEY is written as it is, not percent-encoded
  --endpoint URL          scheme, host and port of the store (default: VARO_ENDPOINT)
  --region R              region of the store (default: VARO_REGION, or us-east-1)
  --access-key K          access key (default: VARO_ACCESS_KEY; none: nothing is signed)
  --secret-key-file FILE  take its secret from the first line of FILE (default:
                          VARO_SECRET_KEY; a session token comes from VARO_SESSION_TOKEN)
)";

/// The store that the arguments name, with the settings of the command line.
[[nodiscard]] varo::Outcome<ObjectStore> openStore(const Session& session,
                                                   const StoreArguments& store);

/// "key" and what else the store says: "size", "entityTag", "modified", "contentType", "isPrefix";
/// of a file that was made, "FilePath".
[[nodiscard]] platform::Dictionary resultOf(const ObjectInfo& info);

/// How failures of operations on a store are told.
[[nodiscard]] FailureText describeStoreFailure(const platform::Value& failure);

struct StoreGet {
  /// A path, or `kStandardOutput`; none: in the downloads directory.
  std::optional<std::string> output;
  IfExists ifExists = IfExists::kFail;
  /// Goes on with what an earlier one has left, and leaves what it has.
  bool resume = false;
};

/// Brings the object into a file or to standard output.
[[nodiscard]] int getFromStore(Session& session, const StoreArguments& store, const StoreGet& get);

struct StorePut {
  /// A path, or "-" for standard input.
  std::string file;
  std::optional<std::string> contentType;
  std::optional<std::int64_t> partSize;
};

/// Sends a file. A key that is empty or ends in a slash gets the file's name behind it.
[[nodiscard]] int putToStore(Session& session, StoreArguments store, const StorePut& put);

}  // namespace varo::cli
