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

}  // namespace varo::sandbox
