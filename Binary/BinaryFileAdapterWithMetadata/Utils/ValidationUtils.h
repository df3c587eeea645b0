#pragma once

#include "Binary/BinaryFileAdapterWithMetadata/Constants/BinaryConstants.h"
#include "Platform/Foundation/Error.h"
#include "Platform/Foundation/Value.h"

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace varo::binary {

/// Checks a caller's URL and parameters before any task is made.
///
/// Each check stops at the first rule that fails, answers false and then sets `error` (unless it is
/// null) to a plain error with domain, code and readable text. What is checked is logged. None of
/// the errors goes away by trying again. Stateless, thread-safe.
class ValidationUtils {
 public:
  ValidationUtils() = delete;

  /// Type that an entry must have.
  enum class ParamType { kString, kDictionary };

  /// Whether `url` is http:// or https://, then a word character (letter, digit, underscore or
  /// anything beyond ASCII), then anything without white space and double quotes. Lower-case
  /// schemes only. Else "ValidationsUtils", `kCodeMissingServerUrl`.
  [[nodiscard]] static bool isValidUrl(std::string_view url, platform::ErrorPtr* error);

  /// Domain "UploadError". Base64 text is checked, but stays in the parameters as it is; a file is
  /// checked for being there and not empty.
  [[nodiscard]] static bool validateUploadParamsWithUploadParams(
      const std::optional<platform::Dictionary>& uploadParams, UploadInputType uploadInputType,
      platform::ErrorPtr* error);
  /// Domain "DownloadError".
  [[nodiscard]] static bool validateDownloadParams(
      const std::optional<platform::Dictionary>& downloadParams, platform::ErrorPtr* error);
  /// Domains "UpdateError" and, for the headers, "updateError".
  [[nodiscard]] static bool validateUpdateParams(
      const std::optional<platform::Dictionary>& updateParams, platform::ErrorPtr* error);
  /// Domain "DeleteError" for a missing identifier, "DownloadError" for an empty one.
  [[nodiscard]] static bool validateFileIdForDeletion(const std::optional<std::string>& fileId,
                                                      platform::ErrorPtr* error);
  /// Domain "DeleteError". At least one criterion.
  [[nodiscard]] static bool validateDeleteParams(
      const std::optional<platform::Dictionary>& deleteParams, platform::ErrorPtr* error);

  /// "chunkSize" of the parameters and of the options, where it is a text: wholly a whole number.
  /// Else "UploadError", 6011. Asked under `TransferPolicy::kSafe`; otherwise such a text counts as
  /// the number that it starts with.
  [[nodiscard]] static bool validateChunkSizes(const platform::Dictionary& uploadParams,
                                               const std::optional<platform::Dictionary>& options,
                                               platform::ErrorPtr* error);

  /// The parameters with a positive "chunkSize" (bytes): their own, else `kDefaultChunkSize`.
  [[nodiscard]] static platform::Dictionary fixChunkSizeIfNeeded(
      std::optional<platform::Dictionary> uploadParams);

  /// A required entry: there, of the type, and not an empty text.
  [[nodiscard]] static bool validateInnerMapParameter(
      const platform::Dictionary& params, std::string_view paramName, std::string_view errorDomain,
      ParamType typeOfParam, std::int32_t errorCodeForMissingParameter,
      std::string_view errorMessageForMissingParameter, std::int32_t errorCodeForJunkValue,
      std::string_view errorMessageForJunkValue, platform::ErrorPtr* error);
  /// An optional entry: absent or of the type.
  [[nodiscard]] static bool validateInnerMapParameter(
      const platform::Dictionary& params, std::string_view paramName, std::string_view errorDomain,
      ParamType typeOfParam, std::int32_t errorCodeForJunkValue,
      std::string_view errorMessageForJunkValue, platform::ErrorPtr* error);
};

}  // namespace varo::binary
