#include "Binary/BinaryFileAdapterWithMetadata/Constants/BinaryConstants.h"
#include "Binary/BinaryFileAdapterWithMetadata/Manager/FileStorageManager.h"
#include "Client/FileDownload.h"
#include "Client/FileOperation.h"
#include "Client/FileRecords.h"
#include "Client/FileUpload.h"
#include "Platform/Foundation/Array.h"
#include "Platform/Foundation/Redaction.h"
#include "varo/files.h"

#include <fmt/format.h>

#include <algorithm>
#include <utility>

namespace varo {

using binary::FileStorageManager;
using platform::Dictionary;
using platform::Value;

namespace {

using detail::FileOperation;
using detail::FileRun;
using detail::OneRequest;

constexpr std::string_view kFilesDeleted = "files_deleted";

Outcome<void> checked(const Filter& filter) {
  const auto name = detail::unusableNameIn(filter);
  if (!name) return {};
  return detail::failureOf(
      Kind::kInvalidArgument,
      fmt::format("The filter's \"{}\" is no name of an entry: letters, digits, \"_\"", *name));
}

/// The records of a list; one that is no dictionary is left out.
Outcome<std::vector<FileRecord>> recordsIn(const Dictionary& result) {
  std::vector<FileRecord> records;
  const platform::Array* array = result[binary::keys::kRecords].array();
  if (array == nullptr) return records;
  records.reserve(array->size());
  for (const Value& record : *array) {
    if (const Dictionary* found = record.dictionary()) {
      records.push_back(detail::recordFrom(*found));
    }
  }
  return records;
}

/// How many the service says that it has deleted; 0 where it says nothing.
Outcome<std::uint64_t> deletedIn(const Dictionary& result) {
  const std::int64_t count = result[kFilesDeleted].integerValue();
  return static_cast<std::uint64_t>(std::max<std::int64_t>(count, 0));
}

template <typename T>
Transfer<T> begin(const std::shared_ptr<detail::ClientCore>& core,
                  std::shared_ptr<detail::FileCall<T>> call) {
  return Transfer<T>(FileOperation<T>::begin(core, std::move(call)));
}

template <typename T>
Transfer<T> request(const std::shared_ptr<detail::ClientCore>& core, OperationKind kind,
                    std::string about, typename OneRequest<T>::Send send,
                    typename OneRequest<T>::Read read, bool canPause = false) {
  return begin<T>(core, std::make_shared<OneRequest<T>>(kind, std::move(about), std::move(send),
                                                        std::move(read), canPause));
}

}  // namespace

Outcome<FileClient> FileClient::create(Options options) {
  return detail::ClientCore::create(std::move(options)).transform([](auto core) {
    return FileClient(std::move(core));
  });
}

Transfer<std::vector<FileRecord>> FileClient::list(Filter filter) const {
  std::string about = fmt::format("list of the files at {}", platform::redactUrl(core_->url()));
  const auto send = [url = core_->url(),
                     filter = std::move(filter)](const FileRun& run) -> Outcome<void> {
    if (auto good = checked(filter); !good) return good;
    FileStorageManager::sharedInstance().listFilesWithUrl(url, detail::expressionFrom(filter),
                                                          run.headers, run.callback,
                                                          detail::optionsWith(run.settings));
    return {};
  };
  return request<std::vector<FileRecord>>(core_, OperationKind::kFileList, std::move(about), send,
                                          recordsIn, true);
}

Transfer<FileRecord> FileClient::upload(Source source, UploadOptions options) const {
  return begin<FileRecord>(
      core_, std::make_shared<detail::FileUpload>(core_, std::move(source), std::move(options)));
}

Transfer<std::filesystem::path> FileClient::download(FileId id, Destination to,
                                                     const DownloadOptions& options) const {
  return begin<std::filesystem::path>(
      core_,
      std::make_shared<detail::FileDownload>(core_->url(), std::move(id), std::move(to), options));
}

Transfer<FileRecord> FileClient::update(FileId id, const Metadata& metadata) const {
  std::string about = fmt::format("update of the file {}", id.text());
  Dictionary entries = detail::dictionaryFrom(metadata);
  entries.set(binary::keys::kFileId, id.text());
  const auto send = [url = core_->url(), entries, about,
                     id = std::move(id)](const FileRun& run) -> Outcome<void> {
    if (auto good = detail::checked(id); !good) return good;
    if (auto good = detail::checked(entries, about); !good) return good;
    FileStorageManager::sharedInstance().updateWithUrl(
        url, Dictionary{{binary::keys::kHeaders, run.headers}, {binary::keys::kMetadata, entries}},
        run.callback, detail::optionsWith(run.settings));
    return {};
  };
  const auto read = [entries](const Dictionary& /*result*/) -> Outcome<FileRecord> {
    return detail::recordFrom(entries);
  };
  return request<FileRecord>(core_, OperationKind::kFileUpdate, std::move(about), send, read);
}

Transfer<std::uint64_t> FileClient::remove(FileId id) const {
  std::string about = fmt::format("delete of the file {}", id.text());
  const auto send = [url = core_->url(), id = std::move(id)](const FileRun& run) -> Outcome<void> {
    if (auto good = detail::checked(id); !good) return good;
    FileStorageManager::sharedInstance().deleteWithUrl(
        url, id.text(), Dictionary{}, run.headers, run.callback, detail::optionsWith(run.settings));
    return {};
  };
  return request<std::uint64_t>(core_, OperationKind::kFileRemove, std::move(about), send,
                                deletedIn);
}

Transfer<std::uint64_t> FileClient::removeWhere(Filter filter) const {
  std::string about = fmt::format("delete of the files with {}", detail::expressionFrom(filter));
  const auto send = [url = core_->url(),
                     filter = std::move(filter)](const FileRun& run) -> Outcome<void> {
    if (filter.empty()) {
      return detail::failureOf(Kind::kInvalidArgument,
                               "The filter is empty, which would delete every file");
    }
    if (auto good = checked(filter); !good) return good;
    const Dictionary criteria = detail::criteriaFrom(filter);
    if (criteria.empty()) {
      return detail::failureOf(Kind::kInvalidArgument,
                               "The filter wants two values of one entry, which no file has");
    }
    FileStorageManager::sharedInstance().deleteByCriteria(url, criteria, run.headers, run.callback,
                                                          detail::optionsWith(run.settings));
    return {};
  };
  return request<std::uint64_t>(core_, OperationKind::kFileRemoveWhere, std::move(about), send,
                                deletedIn);
}

}  // namespace varo
