#pragma once

#include "Platform/Foundation/Error.h"

#include <cstdint>
#include <string_view>

/// Errors about what is to be uploaded, as the file adapter and online uploads report them.
namespace varo::binary {

/// Details that both report, each with the code that its callers know.
inline constexpr std::string_view kNoUploadSource =
    "Either FilePath or RawBytes needs to be specified";
inline constexpr std::string_view kRawDataNull = "Null value found for rawData";
inline constexpr std::string_view kFileNotFound = "Could not find File at given FilePath";
inline constexpr std::string_view kNoDataInFile = "No data present in given file";

/// The error "`message`: `detail`" of the domain "UploadError".
[[nodiscard]] platform::ErrorPtr uploadError(std::int32_t code, std::string_view message,
                                             std::string_view detail);

/// `uploadError` with the code and message of a parameter that is missing (6010), has the wrong
/// type (6011) or has a value that cannot be used (6012).
[[nodiscard]] platform::ErrorPtr missingUploadParameter(std::string_view detail);
[[nodiscard]] platform::ErrorPtr uploadParameterOfWrongType(std::string_view detail);
[[nodiscard]] platform::ErrorPtr unusableUploadParameter(std::string_view detail);

}  // namespace varo::binary
