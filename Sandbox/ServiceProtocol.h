#pragma once

#include <string_view>

namespace varo::sandbox {

/// The object service's base path. Clients derive the service's address from what stands before
/// and with "services", and append a template's relative path to it.
inline constexpr std::string_view kServicesPath = "/services";
inline constexpr std::string_view kStoragePath = "/data/v1/storage";
/// The blob service's base path, behind "services", too. Clients append a scope's name to it as it
/// is, hence the slash at its end.
inline constexpr std::string_view kBlobsPath = "/blobs/";
/// Below the object service's base path.
inline constexpr std::string_view kFilesPath = "/objects/File";
inline constexpr std::string_view kBytesPath = "/bytes/";
inline constexpr std::string_view kOperationsPath = "/operations";
/// The service of online transfers, behind "services", and what lies below it.
inline constexpr std::string_view kOnlinePath = "/online";
inline constexpr std::string_view kTemplatesPath = "/templates";
inline constexpr std::string_view kOnlineObjectsPath = "/objects/";
/// On the outside store.
inline constexpr std::string_view kStoreObjectsPath = "/objects/";
inline constexpr std::string_view kAppendQuery = "mode=append";
/// What a template says for "the service that you talk to anyway".
inline constexpr std::string_view kServiceDomain = "#middlewaredomain";

/// The "opstatus" values of the service's refusals, as docs/sandbox.md lists them.
enum ServiceStatus : int {
  kBadJson = 8001,
  kBadParameter = 8002,
  kBadFilter = 8003,
  kNotFound = 8004,
  kWrongState = 8005,
  kBadChunk = 8006,
  kWrongSize = 8007,
  kWrongEntityTag = 8008,
  kUnauthorized = 8009,
  kBadBody = 8010,
  kUnknownPath = 8011,
  kInternal = 8012,
  kWrongUploadMode = 8013,
  kForbidden = 8014,
  kNothingToDelete = 8015,
  kDeleteFailed = 8016,
  kUnknownOperation = 8017,
};

/// The header that carries an application's token to the object service, and nowhere else.
inline constexpr std::string_view kTokenHeader = "X-Pelmar-Authorization";

}  // namespace varo::sandbox
