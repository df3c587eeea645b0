#pragma once

#include "Binary/Binary/Utils/TransferPolicy.h"
#include "Platform/Foundation/Clock.h"
#include "Platform/Foundation/Data.h"
#include "Platform/Foundation/JsonLimits.h"
#include "Platform/Foundation/Result.h"
#include "Platform/Foundation/Value.h"
#include "Platform/Network/RequestSettings.h"

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>

namespace varo::binary {

/// Key of the options under which a caller may put an `OperationSettings` of its own, and of the
/// input context under which every task finds the ones of its operation.
inline constexpr const char* kOperationSettings = platform::kRequestSettings;
/// Key of the options under which a caller may put a `platform::Cancellation`.
inline constexpr char kCancellation[] = "cancellation";

/// How many bytes a response may have, by the kind of request. A longer one is an error that names
/// the limit.
struct AnswerLimits {
  static constexpr std::uint64_t kMiB = std::uint64_t{1024} * 1024;

  std::uint64_t list = 256 * kMiB;
  /// Of templates, and of responses to a creation, an update, a deletion, a status request, a
  /// chunk, a commit or an online upload.
  std::uint64_t small = kMiB;
  /// Of responses that report a failure.
  std::uint64_t errorPage = std::uint64_t{64} * 1024;
  /// Of the JSON around an object in Base64, which has no ranges and is decoded in memory.
  std::uint64_t base64 = 64 * kMiB;
  /// Of a whole file, also where it is sent instead of the range that was asked for and its size is
  /// not known. No limit by default.
  std::optional<std::uint64_t> file;

  /// Limits for parsing the JSON of a list and of a small response.
  [[nodiscard]] platform::JsonLimits listJson() const noexcept { return {.bytes = list}; }
  [[nodiscard]] platform::JsonLimits smallJson() const noexcept {
    return {.values = platform::kAnswerJsonLimits.values, .bytes = small};
  }
};

/// The settings of one operation: all that does not come from its arguments.
/// - They are taken once, when the operation starts, and travel to its tasks in the input context.
/// - Two operations with different settings can run side by side, and a change of the process's
///   defaults does not reach an operation that runs.
/// - The object is immutable once an operation has it, and may serve several operations.
class OperationSettings final : public platform::RequestSettings {
 public:
  /// The process's defaults of this moment: `transferPolicy()`, the transport in force and who
  /// observes the requests.
  OperationSettings();

  TransferPolicy policy;
  AnswerLimits limits;

  /// How many ranges of one object a blob's or an online download may have in flight; it has as
  /// many as make it faster. 1: each is asked for when the one before it is there. With more,
  /// ranges that come early wait for their turn: a few times as many are in memory, or on the disk
  /// where they are larger than 1 MiB.
  std::size_t parallelRanges = 1;

  /// Where a downloaded file goes instead of into the downloads directory under the record's name.
  struct Destination {
    /// Where the bytes are received, so that storing them there is a change of name.
    std::string spoolDirectory;
    /// Takes the bytes while they are received; null: `store` gets them.
    std::shared_ptr<platform::BodyReceiver> receiver = {};
    /// Headers of the request for the bytes alone. With a "Range" among them a 206 is a success
    /// too; that it has the right bytes is the receiver's to check.
    platform::Dictionary headers = {};
    /// Called when all bytes are there, on a thread of the pool, with those that no receiver has
    /// taken; what it gives stands as "filePath" in the outcome.
    std::function<platform::Result<std::string>(const platform::Data& bytes)> store;
  };
  std::optional<Destination> destination;

  /// Called with the service's response to the creation of an upload's record, on a thread of the
  /// pool, before a byte is sent. "file_id" in it is what the record can be deleted by.
  std::function<void(const platform::Dictionary& creation)> onRecordMade;

  /// An upload that goes on: no record is made.
  struct Resumed {
    /// What `onRecordMade` was told.
    platform::Dictionary creation;
    /// How many bytes the service has: whole chunks of the same size as before.
    std::int64_t offset = 0;
  };
  std::optional<Resumed> resumed;

  /// Where the blobs of an offline database are, instead of where its name leads to. For a deletion
  /// or a `BlobDownload`; `BinaryDataManager` starts and pauses downloads by blob id alone, so it
  /// can serve downloads of one database only.
  struct BlobPlaces {
    /// Absolute paths. The directory is that of one database alone: files are named after blob ids.
    std::string database;
    std::string files;
  };
  std::optional<BlobPlaces> blobPlaces;

  /// What the signature of an online upload is dated by; null: the manager's clock.
  std::shared_ptr<const platform::Clock> clock;

  /// Called when a download has changed the state in its blob's row, on the thread that did.
  std::function<void(const std::string& blobId)> onBlobState;

  [[nodiscard]] bool isSafe() const noexcept { return policy == TransferPolicy::kSafe; }

  using Ptr = std::shared_ptr<const OperationSettings>;

  /// The settings to start an operation with: those in `options`, or else the process's defaults.
  /// The cancellation in `options` is part of them.
  [[nodiscard]] static Ptr take(const platform::Dictionary& options);
  /// The settings of the operation that this input context belongs to. A task that runs on its own
  /// gets the process's defaults.
  [[nodiscard]] static Ptr of(const platform::Dictionary& inputContext);
  /// The settings as an entry for an input context or for options.
  [[nodiscard]] static platform::Value value(const Ptr& settings);

  /// The options of one request: `options`, these settings, and the limits of its response.
  [[nodiscard]] static platform::Dictionary forRequest(const Ptr& settings,
                                                       platform::Dictionary options,
                                                       const platform::ResponseLimits& limits);
  /// Limits of a response of at most `success` bytes; an error page has its own.
  [[nodiscard]] platform::ResponseLimits limitsOf(std::uint64_t success) const noexcept;

  [[nodiscard]] std::string description() const override { return "OperationSettings"; }
};

}  // namespace varo::binary
