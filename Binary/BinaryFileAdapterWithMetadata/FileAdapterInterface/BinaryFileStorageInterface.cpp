#include "Binary/BinaryFileAdapterWithMetadata/FileAdapterInterface/BinaryFileStorageInterface.h"

#include "Binary/Binary/SourceNames.h"
#include "Binary/Binary/Utils/CommonUtils.h"
#include "Binary/BinaryFileAdapterWithMetadata/Constants/ErrorConstants.h"
#include "Binary/BinaryFileAdapterWithMetadata/Constants/LogTexts.h"
#include "Binary/BinaryFileAdapterWithMetadata/Manager/FileStorageManager.h"
#include "Binary/BinaryFileAdapterWithMetadata/Utils/BinaryCallbackUtils.h"

#include <exception>

namespace varo::binary {
namespace {

namespace texts = log_texts::binary_file_storage_interface;

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
    logger().logError(message, error->localizedDescription());
    if (!onFailure) return;
    try {
      onFailure(Dictionary{{keys::kError, error}});
    } catch (...) {
      logger().logError(texts::kFailureBlockThrew, reasonOfException());
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
  guarded(texts::kListFailed, onFailure, [&]() {
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
  guarded(texts::kUploadFailed, onFailure, [&]() {
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
  guarded(texts::kDownloadFailed, onFailure, [&]() {
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
  guarded(texts::kUpdateFailed, onFailure, [&]() {
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
  guarded(texts::kDeleteFailed, onFailure, [&]() {
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
  guarded(texts::kDeleteByCriteriaFailed, onFailure, [&]() {
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
  guarded(texts::kAbortFailed, onFailure, [&]() {
    deleteWithUrl(url, fileId, abortParams, headers, onSuccess, onFailure, options);
  });
}

UploadInputType BinaryFileStorageInterface::getUploadInputType(std::string_view inputType) {
  return inputType == kUploadInputTypeLocalFilePath ? UploadInputType::kLocalFilePath
                                                    : UploadInputType::kRawBytes;
}

}  // namespace varo::binary
