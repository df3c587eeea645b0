#pragma once

#include <cstdint>
#include <string_view>

/// Names and values of the exchanges with the object service and with object stores.
namespace varo::binary {

/// Appended to the base URL: where the files' metadata lives.
inline constexpr std::string_view kObjectsFileSuffix = "/objects/File";
/// The path component that service URLs are cut at.
inline constexpr std::string_view kServices = "services";

/// Request templates.
inline constexpr std::string_view kTemplateStart = "${";
inline constexpr std::string_view kTemplateEnd = "}";
inline constexpr char kTemplateParamDomain[] = "domain";
inline constexpr char kTemplateParamRelativePath[] = "relativepath";
/// The whole URL, in place of the two above.
inline constexpr char kTemplateParamEndpointUrl[] = "endpointUrl";
/// Whether requests are signed: they are where it is `kAuthHmacDigest`.
inline constexpr char kTemplateParamAuth[] = "Auth";
inline constexpr std::string_view kAuthHmacDigest = "HMACDigest";
/// The template domain that means the object service itself.
inline constexpr std::string_view kMiddlewareDomain = "#middlewaredomain";

/// Header names. `kVaroAuthorization` is also the options key of the token.
inline constexpr char kVaroAuthorization[] = "X-Pelmar-Authorization";
inline constexpr char kIgnoreMapperResponseFiltering[] =
    "X-Tessel-Ignore-Mapper-Response-Filtering";
inline constexpr char kHttpMethodOverride[] = "X-HTTP-Method-Override";
inline constexpr char kContentType[] = "Content-Type";
inline constexpr char kContentDisposition[] = "Content-Disposition";
inline constexpr char kContentRange[] = "Content-Range";
inline constexpr char kRange[] = "Range";
inline constexpr char kIfRange[] = "If-Range";

/// Header values.
inline constexpr std::string_view kContentTypeJson = "application/json";
inline constexpr std::string_view kContentTypeOctetStream = "application/octet-stream";
inline constexpr std::string_view kMethodPatch = "PATCH";
inline constexpr std::string_view kTrue = "true";

/// Query parameters.
inline constexpr char kQueryFilter[] = "$filter";
inline constexpr char kQueryType[] = "type";
inline constexpr std::string_view kQueryTypeBytes = "bytes";
inline constexpr char kQueryChunkSequence[] = "chunk_sequence";

/// Multipart bodies.
inline constexpr char kMultipartParts[] = "parts";
inline constexpr char kPartContent[] = "partContent";
inline constexpr std::string_view kPartName = "data";

/// Entries of results and errors of a request.
inline constexpr char kOpStatus[] = "opstatus";
inline constexpr char kResponseHeaders[] = "response_headers";
inline constexpr char kResponseData[] = "data";
inline constexpr char kResponseBody[] = "responseBody";
inline constexpr char kHttpStatusCode[] = "httpStatusCode";
inline constexpr char kPollApi[] = "poll_api";
inline constexpr char kPollStatus[] = "poll_status";

/// Of a delete: the status of one that was accepted for later, and what the response to a status
/// request says once it is done.
inline constexpr std::string_view kHttpStatusAccepted = "202";
inline constexpr std::string_view kPollStatusDone = "false";

/// The operation type with a meaning of its own: hand the body's bytes on as they are.
inline constexpr std::string_view kOperationTypeDownload = "Download";
inline constexpr std::string_view kOperationTypeRange = "DownloadRange";
inline constexpr std::string_view kOperationTypeList = "BinaryList";
inline constexpr std::string_view kOperationTypeStatusChecker = "StatusCheckerTask";

/// Values of an upload template.
inline constexpr std::string_view kUploadModeMultipart = "multipart";
inline constexpr std::string_view kUploadModeBinary = "binary";
inline constexpr std::string_view kUploadMethodPut = "put";
inline constexpr std::string_view kUploadMethodPost = "post";

}  // namespace varo::binary
