#include "Binary/BinaryFileAdapterWithMetadata/Constants/BinaryConstants.h"
#include "Binary/BinaryFileAdapterWithMetadata/Manager/FileStorageManager.h"
#include "Client/FileDestination.h"
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
using binary::OperationSettings;
using platform::Dictionary;
using platform::Value;

namespace {

using detail::FileCall;
using detail::FileOperation;
using Callback = std::shared_ptr<binary::BinaryCallback>;
using Settings = std::shared_ptr<OperationSettings>;

constexpr std::string_view kFilesDeleted = "files_deleted";

/// None, or why the id cannot be used: it stands between quotes in what is asked for.
Outcome<void> checked(const FileId& id) {
  if (id.empty()) return detail::failureOf(Kind::kInvalidArgument, "The file id is empty");
  if (id.text().find('\'') != std::string::npos) {
    return detail::failureOf(Kind::kInvalidArgument,
                             fmt::format("The file id has a quote in it: {}", id.text()));
  }
  return {};
}

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

}  // namespace

Outcome<FileClient> FileClient::create(Options options) {
  return detail::ClientCore::create(std::move(options)).transform([](auto core) {
    return FileClient(std::move(core));
  });
}

Transfer<std::vector<FileRecord>> FileClient::list(Filter filter) const {
  FileCall<std::vector<FileRecord>> call;
  call.about = fmt::format("list of the files at {}", platform::redactUrl(core_->url()));
  call.canPause = true;
  call.send = [url = core_->url(), filter = std::move(filter)](
                  const Dictionary& headers, const Settings& settings,
                  const Callback& callback) -> Outcome<void> {
    if (auto good = checked(filter); !good) return good;
    FileStorageManager::sharedInstance().listFilesWithUrl(
        url, detail::expressionFrom(filter), headers, callback, detail::optionsWith(settings));
    return {};
  };
  call.read = recordsIn;
  return Transfer(FileOperation<std::vector<FileRecord>>::begin(core_, std::move(call)));
}

Transfer<FileRecord> FileClient::upload(Source source, UploadOptions options) const {
  return Transfer(FileOperation<FileRecord>::begin(
      core_, detail::uploadCall(core_, std::move(source), std::move(options))));
}

Transfer<std::filesystem::path> FileClient::download(FileId id, Destination to,
                                                     const DownloadOptions& options) const {
  FileCall<std::filesystem::path> call;
  call.about = fmt::format("download of the file {}", id.text());
  call.canPause = true;
  Dictionary metadata = detail::metadataOf(options.fileNamespace, options.securityKey);
  metadata.set(binary::keys::kFileId, id.text());
  call.send = [url = core_->url(), metadata, id = std::move(id), to = std::move(to),
               ifExists = options.ifExists](const Dictionary& headers, const Settings& settings,
                                            const Callback& callback) -> Outcome<void> {
    if (auto good = checked(id); !good) return good;
    auto prepared = detail::prepare(to, ifExists);
    if (!prepared) return std::move(prepared).error();
    if (prepared->kept) {
      callback->executeSuccessWithResult(
          Dictionary{{binary::keys::kFilePath, prepared->kept->string()}});
      return {};
    }
    settings->destination = std::move(prepared->destination);
    FileStorageManager::sharedInstance().downloadWithURL(
        url, Dictionary{{binary::keys::kHeaders, headers}, {binary::keys::kMetadata, metadata}},
        callback, detail::optionsWith(settings));
    return {};
  };
  call.read = [](const Dictionary& result) -> Outcome<std::filesystem::path> {
    return std::filesystem::path(result[binary::keys::kFilePath].textValue());
  };
  return Transfer(FileOperation<std::filesystem::path>::begin(core_, std::move(call)));
}

Transfer<FileRecord> FileClient::update(FileId id, const Metadata& metadata) const {
  FileCall<FileRecord> call;
  call.about = fmt::format("update of the file {}", id.text());
  Dictionary entries = detail::dictionaryFrom(metadata);
  entries.set(binary::keys::kFileId, id.text());
  call.send = [url = core_->url(), entries, id = std::move(id)](
                  const Dictionary& headers, const Settings& settings,
                  const Callback& callback) -> Outcome<void> {
    if (auto good = checked(id); !good) return good;
    FileStorageManager::sharedInstance().updateWithUrl(
        url, Dictionary{{binary::keys::kHeaders, headers}, {binary::keys::kMetadata, entries}},
        callback, detail::optionsWith(settings));
    return {};
  };
  call.read = [entries](const Dictionary& /*result*/) -> Outcome<FileRecord> {
    return detail::recordFrom(entries);
  };
  return Transfer(FileOperation<FileRecord>::begin(core_, std::move(call)));
}

Transfer<std::uint64_t> FileClient::remove(FileId id) const {
  FileCall<std::uint64_t> call;
  call.about = fmt::format("delete of the file {}", id.text());
  call.send = [url = core_->url(), id = std::move(id)](const Dictionary& headers,
                                                       const Settings& settings,
                                                       const Callback& callback) -> Outcome<void> {
    if (auto good = checked(id); !good) return good;
    FileStorageManager::sharedInstance().deleteWithUrl(url, id.text(), Dictionary{}, headers,
                                                       callback, detail::optionsWith(settings));
    return {};
  };
  call.read = deletedIn;
  return Transfer(FileOperation<std::uint64_t>::begin(core_, std::move(call)));
}

Transfer<std::uint64_t> FileClient::removeWhere(Filter filter) const {
  FileCall<std::uint64_t> call;
  call.about = fmt::format("delete of the files with {}", detail::expressionFrom(filter));
  call.send = [url = core_->url(), filter = std::move(filter)](
                  const Dictionary& headers, const Settings& settings,
                  const Callback& callback) -> Outcome<void> {
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
    FileStorageManager::sharedInstance().deleteByCriteria(url, criteria, headers, callback,
                                                          detail::optionsWith(settings));
    return {};
  };
  call.read = deletedIn;
  return Transfer(FileOperation<std::uint64_t>::begin(core_, std::move(call)));
}

}  // namespace varo
