#pragma once

#include "Platform/Foundation/Clock.h"
#include "Platform/Foundation/Error.h"
#include "Platform/Foundation/JsonLimits.h"
#include "Platform/Foundation/Result.h"
#include "Platform/Foundation/Value.h"
#include "Platform/TaskEngine/VSTaskError.h"

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

namespace varo::binary {

/// Errors, JSON, response checks and the time. Stateless, thread-safe.
class CommonUtils {
 public:
  CommonUtils() = delete;

  /// A plain error whose user information is its readable text alone.
  [[nodiscard]] static platform::ErrorPtr generateErrorWith(std::string_view domain,
                                                            std::int64_t andCode,
                                                            std::string_view andDescription);

  /// An error of the task with this `VSTask::ID`, whose user information is {"message": text} and,
  /// where there is one, its cause under `platform::kUnderlyingError`. The network response is not
  /// kept, whatever it is.
  [[nodiscard]] static std::shared_ptr<const platform::VSTaskError> getErrorForTask(
      std::int64_t taskID, std::string_view andDomain, std::int64_t withCode,
      std::string_view withMessage, const std::optional<std::string>& andNetworkResponse,
      const platform::ErrorPtr& cause = nullptr);

  /// Null when there is no network error, whatever the response says; else a task error with
  /// `kCodeUploadFailure` and the network error's readable text, for downloads too, and the network
  /// error as its cause.
  [[nodiscard]] static std::shared_ptr<const platform::VSTaskError> validateResponseforTask(
      std::int64_t taskID, std::string_view withDomain,
      const platform::Dictionary& withResponseDictionary,
      const std::optional<platform::Data>& withData, const platform::ErrorPtr& andError);

  /// Whether there is a value: JSON's null says that there is none.
  [[nodiscard]] static bool isGiven(const platform::Value& value) noexcept {
    return value.isPresent() && !value.isNull();
  }

  /// The JSON value that `json` is; missing for no or empty text and for text that is not JSON or
  /// goes beyond the limits.
  [[nodiscard]] static platform::Value parseJsonString(
      const std::optional<std::string>& json,
      const platform::JsonLimits& limits = platform::kAnswerJsonLimits);
  /// As `parseJsonString`, for bytes, which are read piece by piece.
  [[nodiscard]] static platform::Value jsonObjectFromData(
      const platform::Data& data, const platform::JsonLimits& limits = platform::kAnswerJsonLimits);

  /// Compact JSON; none when an entry has no JSON form.
  [[nodiscard]] static std::optional<std::string> jsonStringFromDictionary(
      const platform::Dictionary& dictionary);

  /// The bytes as text, with U+FFFD for what is not UTF-8; empty for missing bytes. Errors: those
  /// of `Data::read`, and EFBIG for more than 64 MiB.
  [[nodiscard]] static platform::Result<std::string> responseText(
      const std::optional<platform::Data>& data);
  /// As `responseText`, but logs an error and then returns an empty text.
  [[nodiscard]] static std::string getResponseString(const std::optional<platform::Data>& data);
  /// The first 4 KiB of the bytes as text, with secrets replaced, as errors show them.
  [[nodiscard]] static std::string responseExcerpt(const std::optional<platform::Data>& data);

  /// Adds to an error's user information what a server sent back: "httpStatusCode" and, where there
  /// are bytes, the first 4 KiB of them as text, "responseBody", with secrets replaced.
  static void addAnswer(platform::Dictionary& userInfo, int status,
                        const std::optional<platform::Data>& body);

  /// Whole seconds since 1970-01-01 UTC. Wraps around in 2038.
  [[nodiscard]] static std::int32_t getEpochTime(
      const platform::Clock& clock = platform::Clock::system());

  /// Whether this is a test run: the program exports the C function
  /// `bool XCTestProbe_isTesting(void)`, and it returns true.
  [[nodiscard]] static bool areWeBeingUnitTested();
};

}  // namespace varo::binary
