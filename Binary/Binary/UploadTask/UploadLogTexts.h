#pragma once

#include <string_view>

/// What the tasks of an online upload log.
/// The texts are fixed, misspellings included: people search logs for them. Each class has a group
/// of its own.
namespace varo::binary::log_texts {

namespace upload_template_getter_task {

inline constexpr std::string_view kSuccessful = "[UploadTemplateGetterTask] request successful";
inline constexpr std::string_view kUnexpectedStatus =
    "[UploadTemplateGetterTask] received response with status code: %ld";

}  // namespace upload_template_getter_task

namespace uploader_task {

inline constexpr std::string_view kFileCountsAsEmpty =
    "The file can't be read and counts as empty : %@";
inline constexpr std::string_view kAnswerCountsAsEmpty =
    "The response can't be read and counts as empty : %@";

}  // namespace uploader_task

namespace bytes_upload_handler_task {

inline constexpr std::string_view kNoUploadParams =
    "[BytesUploadHandlerTask] No uploadParams found";
inline constexpr std::string_view kRequestBody = "[BytesUploadHandlerTask] requestbody: %@";
inline constexpr std::string_view kUrl = "[BytesUploadHandlerTask] url: %@";
inline constexpr std::string_view kCompleted =
    "[BytesUploadHandlerTask] file upload completed successfully";
inline constexpr std::string_view kUnexpectedStatus =
    "[BytesUploadHandlerTask] received response with status code %ld";

}  // namespace bytes_upload_handler_task

namespace multi_part_uploader_task {

inline constexpr std::string_view kNoUploadParams = "[BackendUploaderTask] No uploadParams found";
inline constexpr std::string_view kRequestBody = "[BackendUploaderTask] requestbody: %@";
inline constexpr std::string_view kUrl = "[BackendUploaderTask] url: %@";
inline constexpr std::string_view kCompleted =
    "[BackendUploaderTask] file upload completed successfully";
inline constexpr std::string_view kUnexpectedStatus =
    "[BackendUploaderTask] received response with status code %ld";

}  // namespace multi_part_uploader_task

}  // namespace varo::binary::log_texts
