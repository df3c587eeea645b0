#pragma once

#include <string_view>

/// Keys and values of the contexts of upload tasks and of upload templates, beside "URL" and
/// "FilePath" of DownloadKeys.h, those of BinaryConstants.h and, of templates,
/// BinaryNetworkConstants.h. They are arrays because a dictionary takes its keys as `std::string`.
namespace varo::binary::upload {

// Input of the task that fetches a template.
inline constexpr char kContext[] = "Context";
inline constexpr char kOnBytesUploadStarted[] = "onBytesUploadStarted";
inline constexpr char kOnByteChunkUploadCompleted[] = "onByteChunkUploadCompleted";
inline constexpr char kOnBytesUploadCompleted[] = "onBytesUploadCompleted";
inline constexpr char kOnUploadFailure[] = "onUploadFailure";

// Its output, and the input of uploaders. "fileName" is also an entry of the upload parameters.
inline constexpr char kFileName[] = "fileName";
inline constexpr char kRedirectionTemplate[] = "redirectionTemplate";
inline constexpr char kTemplateString[] = "templateString";

// Output of uploaders.
inline constexpr char kFileDetails[] = "fileDetails";

// Entries and values of a template.
inline constexpr char kRequestBody[] = "requestBody";
inline constexpr std::string_view kFileContent = "fileContent";

}  // namespace varo::binary::upload
