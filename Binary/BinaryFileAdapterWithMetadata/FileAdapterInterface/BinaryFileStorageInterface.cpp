#include "Binary/BinaryFileAdapterWithMetadata/FileAdapterInterface/BinaryFileStorageInterface.h"

#include "Binary/Binary/BinaryLogger.h"
#include "Binary/Binary/Utils/CommonUtils.h"
#include "Binary/BinaryFileAdapterWithMetadata/Constants/ErrorConstants.h"
#include "Binary/BinaryFileAdapterWithMetadata/Manager/FileStorageManager.h"
#include "Binary/BinaryFileAdapterWithMetadata/Utils/BinaryCallbackUtils.h"

#include <exception>

namespace varo::binary {
namespace {

using platform::Dictionary;
using platform::ErrorPtr;

constexpr std::string_view kListFailed = "Failed to execute listFilesWithURL method, error : %@";
constexpr std::string_view kUploadFailed = "Failed to execute uploadBinary method, error : %@";
constexpr std::string_view kDownloadFailed = "Failed to execute downloadBinary method, error : %@";
constexpr std::string_view kUpdateFailed = "Failed to execute updateBinary method, error : %@";
constexpr std::string_view kDeleteFailed =
    "Failed to execute deleteByFileIdBinary method, error : %@";
constexpr std::string_view kDeleteByCriteriaFailed =
    "Failed to execute deleteByCriteriaBinary method, error : %@";
constexpr std::string_view kAbortFailed = "Failed to execute abortWithUrl method, error : %@";
constexpr std::string_view kFailureBlockThrew =
    "The failure callback of the application threw, exception : %@";

FileStorageManager& manager() {
  static FileStorageManager& instance = FileStorageManager::sharedInstance();
  return instance;
}

/// What the exception being handled says. Called in a handler only.
std::string reasonOfException() {
  try {
    throw;
  } catch (const std::exception& exception) {
    return exception.what();
  } catch (...) {
    return std::string(kUnknownException);
  }
}

/// The one guard that turns exceptions into failures: logs `message` and calls the failure block. A
/// template, since making a function object of the operation could fail before it is guarded.
template <typename Operation>
void guarded(std::string_view message, const BinaryBlock& onFailure, const Operation& operation) {
  try {
    operation();
  } catch (...) {
    const ErrorPtr error = CommonUtils::generateErrorWith(kFileInterfaceErrorDomain, kCodeException,
                                                          reasonOfException());
    BinaryLogger::sharedInstance().logError(message, error->localizedDescription());
    if (!onFailure) return;
    try {
      onFailure(Dictionary{{keys::kError, error}});
    } catch (...) {
      BinaryLogger::sharedInstance().logError(kFailureBlockThrew, reasonOfException());
    }
  }
}

}  // namespace

void BinaryFileStorageInterface::initialize() { (void)manager(); }

void BinaryFileStorageInterface::getFilesWithUrl(const std::string& url,
                                                 const std::optional<std::string>& criteria,
                                                 const std::optional<Dictionary>& headers,
                                                 const BinaryBlock& onSuccess,
                                                 const BinaryBlock& onFailure,
                                                 const std::optional<Dictionary>& options) {
  guarded(kListFailed, onFailure, [&]() {
    const auto callback =
        BinaryCallbackUtils::getLocalBinaryCallbackWithOnSuccess(onSuccess, onFailure, nullptr);
    manager().listFilesWithUrl(url, criteria, headers, callback, options);
  });
}

void BinaryFileStorageInterface::uploadBinaryWithUrl(const std::string& url,
                                                     std::string_view InputType,
                                                     const std::optional<Dictionary>& uploadParams,
                                                     const BinaryBlock& onSuccess,
                                                     const BinaryBlock& onFailure,
                                                     const BinaryBlock& onProgress,
                                                     const std::optional<Dictionary>& options) {
  guarded(kUploadFailed, onFailure, [&]() {
    const auto callback =
        BinaryCallbackUtils::getLocalBinaryCallbackWithOnSuccess(onSuccess, onFailure, onProgress);
    manager().uploadBinaryWithUrl(url, getUploadInputType(InputType), uploadParams, callback,
                                  options);
  });
}

void BinaryFileStorageInterface::downloadWithURL(const std::string& url,
                                                 const std::optional<Dictionary>& Params,
                                                 const BinaryBlock& onSuccess,
                                                 const BinaryBlock& onFailure,
                                                 const BinaryBlock& onProgress,
                                                 const std::optional<Dictionary>& options) {
  guarded(kDownloadFailed, onFailure, [&]() {
    const auto callback =
        BinaryCallbackUtils::getLocalBinaryCallbackWithOnSuccess(onSuccess, onFailure, onProgress);
    manager().downloadWithURL(url, Params, callback, options);
  });
}

void BinaryFileStorageInterface::updateWithUrl(const std::string& url,
                                               const std::optional<Dictionary>& Params,
                                               const BinaryBlock& onSuccess,
                                               const BinaryBlock& onFailure,
                                               const std::optional<Dictionary>& options) {
  guarded(kUpdateFailed, onFailure, [&]() {
    const auto callback =
        BinaryCallbackUtils::getLocalBinaryCallbackWithOnSuccess(onSuccess, onFailure, nullptr);
    manager().updateWithUrl(url, Params, callback, options);
  });
}

void BinaryFileStorageInterface::deleteWithUrl(const std::string& url,
                                               const std::optional<std::string>& fileId,
                                               const std::optional<Dictionary>& deleteParams,
                                               const std::optional<Dictionary>& headers,
                                               const BinaryBlock& onSuccess,
                                               const BinaryBlock& onFailure,
                                               const std::optional<Dictionary>& options) {
  guarded(kDeleteFailed, onFailure, [&]() {
    const auto callback =
        BinaryCallbackUtils::getLocalBinaryCallbackWithOnSuccess(onSuccess, onFailure, nullptr);
    manager().deleteWithUrl(url, fileId, deleteParams, headers, callback, options);
  });
}

void BinaryFileStorageInterface::deleteByCriteria(const std::string& url,
                                                  const std::optional<Dictionary>& deleteCriteria,
                                                  const std::optional<Dictionary>& headers,
                                                  const BinaryBlock& onSuccess,
                                                  const BinaryBlock& onFailure,
                                                  const std::optional<Dictionary>& options) {
  guarded(kDeleteByCriteriaFailed, onFailure, [&]() {
    const auto callback =
        BinaryCallbackUtils::getLocalBinaryCallbackWithOnSuccess(onSuccess, onFailure, nullptr);
    manager().deleteByCriteria(url, deleteCriteria, headers, callback, options);
  });
}

void BinaryFileStorageInterface::abortWithUrl(const std::string& url,
                                              const std::optional<std::string>& fileId,
                                              const std::optional<Dictionary>& abortParams,
                                              const std::optional<Dictionary>& headers,
                                              const BinaryBlock& onSuccess,
                                              const BinaryBlock& onFailure,
                                              const std::optional<Dictionary>& options) {
  guarded(kAbortFailed, onFailure, [&]() {
    deleteWithUrl(url, fileId, abortParams, headers, onSuccess, onFailure, options);
  });
}

UploadInputType BinaryFileStorageInterface::getUploadInputType(std::string_view inputType) {
  return inputType == kUploadInputTypeLocalFilePath ? UploadInputType::kLocalFilePath
                                                    : UploadInputType::kRawBytes;
}

}  // namespace varo::binary
