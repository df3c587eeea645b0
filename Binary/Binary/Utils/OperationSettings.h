#pragma once

#include "Binary/Binary/Utils/TransferPolicy.h"
#include "Platform/Foundation/JsonLimits.h"
#include "Platform/Foundation/Value.h"
#include "Platform/Network/RequestSettings.h"

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

namespace varo::binary {

/// Key of the options under which a caller may put an `OperationSettings` of its own, and of the
/// input context under which every task finds the ones of its operation.
inline constexpr const char* kOperationSettings = platform::kRequestSettings;
/// Key of the options under which a caller may put a `platform::Cancellation`.
inline constexpr char kCancellation[] = "cancellation";

/// Bytes of an answer that is read into memory or stored, by what it answers. More is an error
/// that names the limit.
struct AnswerLimits {
  static constexpr std::uint64_t kMiB = std::uint64_t{1024} * 1024;

  std::uint64_t list = 256 * kMiB;
  /// Of templates, and of answers to a creation, an update, a deletion, a status request, a chunk,
  /// a commit or an online upload.
  std::uint64_t small = kMiB;
  /// Of answers that are no success.
  std::uint64_t errorPage = std::uint64_t{64} * 1024;
  /// Of the JSON around an object in Base64, which has no ranges and is decoded in memory.
  std::uint64_t base64 = 64 * kMiB;
  /// Of a whole file, and of one in place of a range while its size is not known; no limit by
  /// default.
  std::optional<std::uint64_t> file;

  /// What is turned into values of a list's answer and of a small one.
  [[nodiscard]] platform::JsonLimits listJson() const noexcept { return {.bytes = list}; }
  [[nodiscard]] platform::JsonLimits smallJson() const noexcept {
    return {.values = platform::kAnswerJsonLimits.values, .bytes = small};
  }
};

/// Everything that an operation does not take from its arguments. Taken once when it starts and
/// carried in the input context to each of its tasks, so that two operations with other settings
/// run side by side and a change of the process's defaults reaches no operation that runs.
/// Immutable once an operation has it. The same object may serve several operations.
class OperationSettings final : public platform::RequestSettings {
 public:
  /// The process's defaults of this moment: `transferPolicy()` and the transport in force.
  OperationSettings();

  TransferPolicy policy;
  AnswerLimits limits;

  [[nodiscard]] bool isSafe() const noexcept { return policy == TransferPolicy::kSafe; }

  using Ptr = std::shared_ptr<const OperationSettings>;

  /// What an operation starts with: those that stand in `options`, else the process's defaults;
  /// with the cancellation that stands in `options`.
  [[nodiscard]] static Ptr take(const platform::Dictionary& options);
  /// Those of the operation that this input context belongs to; the process's defaults for a task
  /// that somebody runs by itself.
  [[nodiscard]] static Ptr of(const platform::Dictionary& inputContext);
  /// As the entry of an input context or of options.
  [[nodiscard]] static platform::Value value(const Ptr& settings);

  /// The options of one request: `options`, these settings, and the limits of its answer.
  [[nodiscard]] static platform::Dictionary forRequest(const Ptr& settings,
                                                       platform::Dictionary options,
                                                       const platform::ResponseLimits& limits);
  /// Limits of an answer of at most `success` bytes; an error page has its own.
  [[nodiscard]] platform::ResponseLimits limitsOf(std::uint64_t success) const noexcept;

  [[nodiscard]] std::string description() const override { return "OperationSettings"; }
};

}  // namespace varo::binary
