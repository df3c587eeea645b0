#include "Client/C/CContent.h"
#include "Client/C/COptions.h"
#include "Client/C/COutcome.h"
#include "Client/C/CTransfer.h"
#include "Client/C/CValues.h"
#include "Client/C/Created.h"
#include "Client/C/GivenStruct.h"
#include "varo/c/files.h"
#include "varo/files.h"

#include <algorithm>
#include <memory>
#include <span>
#include <string_view>
#include <utility>

struct varo_files {
  varo::FileClient client;
  /// Also where none of the functions of the options holds it.
  std::shared_ptr<varo::capi::UserData> user;
};

namespace varo::capi {

namespace {

Outcome<UploadOptions> uploadOptionsFrom(const varo_upload_options* from) {
  const auto given = givenStruct(from, "varo_upload_options");
  if (!given) return given.error();
  auto metadata =
      metadataFrom(given->metadata, given->metadata_count, "varo_upload_options::metadata");
  if (!metadata) return std::move(metadata).error();
  UploadOptions options;
  if (given->bytes_per_second != 0) options.perSecond = Bytes(given->bytes_per_second);
  options.name = textFrom(given->name);
  options.metadata = *std::move(metadata);
  options.fileNamespace = textFrom(given->file_namespace);
  options.securityKey = textFrom(given->security_key);
  if (given->chunk_size != 0) options.chunkSize = Bytes(given->chunk_size);
  options.resume = UploadPlace(textFrom(given->resume));
  if (given->on_place != nullptr) {
    options.onPlace = [tell = given->on_place, user = given->user](const FileId& record,
                                                                   const UploadPlace& place) {
      tell(user, record.text().c_str(), place.text().c_str());
    };
  }
  return options;
}

Outcome<DownloadOptions> downloadOptionsFrom(const varo_download_options* from) {
  const auto given = givenStruct(from, "varo_download_options");
  if (!given) return given.error();
  const auto ifExists = ifExistsFrom(given->if_exists);
  if (!ifExists) return ifExists.error();
  DownloadOptions options;
  if (given->bytes_per_second != 0) options.perSecond = Bytes(given->bytes_per_second);
  options.ifExists = *ifExists;
  options.fileNamespace = textFrom(given->file_namespace);
  options.securityKey = textFrom(given->security_key);
  if (given->range_first == 0 && given->range_length == 0) return options;
  options.range.emplace().first = given->range_first;
  if (given->range_length != 0) options.range->length = Bytes(given->range_length);
  return options;
}

/// Starts an upload of what `source` gives.
template <typename MakeSource>
varo_transfer* upload(const varo_files* files, const varo_upload_options* options,
                      MakeSource source) {
  return started<FileRecord>([&]() -> Outcome<Transfer<FileRecord>> {
    if (files == nullptr) return missing("files");
    auto given = uploadOptionsFrom(options);
    if (!given) return std::move(given).error();
    Outcome<Source> from = source();
    if (!from) return std::move(from).error();
    return files->client.upload(*std::move(from), *std::move(given));
  });
}

/// Starts a download to where `destination` says.
template <typename MakeDestination>
varo_transfer* download(const varo_files* files, const char* id,
                        const varo_download_options* options, MakeDestination destination) {
  using Path = std::filesystem::path;
  return started<Path>([&]() -> Outcome<Transfer<Path>> {
    if (files == nullptr) return missing("files");
    if (id == nullptr) return missing("id");
    const auto given = downloadOptionsFrom(options);
    if (!given) return given.error();
    Outcome<Destination> to = destination();
    if (!to) return std::move(to).error();
    return files->client.download(FileId(id), *std::move(to), *given);
  });
}

}  // namespace

}  // namespace varo::capi

using namespace varo::capi;
using varo::FileId;
using varo::FileRecord;
using varo::Outcome;
using varo::Transfer;

varo_code varo_files_create(const varo_options* options, varo_files** files,
                            varo_failure** failure) {
  return created(files, "files", failure, [&]() -> Outcome<std::unique_ptr<varo_files>> {
    auto given = optionsFrom(options);
    if (!given) return std::move(given).error();
    auto client = varo::FileClient::create(std::move(given->options));
    if (!client) return std::move(client).error();
    auto handle = std::make_unique<varo_files>(varo_files{*client, given->user});
    given->user->adopt();
    return handle;
  });
}

void varo_files_free(varo_files* files) { const std::unique_ptr<varo_files> owned(files); }

varo_transfer* varo_files_upload_path(const varo_files* files, const char* path,
                                      const varo_upload_options* options) {
  return upload(files, options, [&] { return sourceOfPath(path); });
}

varo_transfer* varo_files_upload_bytes(const varo_files* files, const void* bytes, size_t length,
                                       const varo_upload_options* options) {
  return upload(files, options, [&] { return sourceOfBytes(bytes, length); });
}

varo_transfer* varo_files_upload_reader(const varo_files* files, varo_read_fn read, void* user,
                                        uint64_t length, const varo_upload_options* options) {
  return upload(files, options, [&] { return sourceOfReader(read, user, length); });
}

varo_transfer* varo_files_download_path(const varo_files* files, const char* id, const char* path,
                                        const varo_download_options* options) {
  return download(files, id, options, [&] { return destinationAt(path); });
}

varo_transfer* varo_files_download_sink(const varo_files* files, const char* id,
                                        varo_write_fn write, void* user,
                                        const varo_download_options* options) {
  return download(files, id, options, [&] { return destinationOfSink(write, user); });
}

varo_transfer* varo_files_list(const varo_files* files, const varo_entry* terms, size_t count) {
  using Records = std::vector<FileRecord>;
  return started<Records>([&]() -> Outcome<Transfer<Records>> {
    if (files == nullptr) return missing("files");
    auto filter = filterFrom(terms, count);
    if (!filter) return std::move(filter).error();
    return files->client.list(*std::move(filter));
  });
}

varo_transfer* varo_files_update(const varo_files* files, const char* id,
                                 const varo_entry* metadata, size_t count) {
  return started<FileRecord>([&]() -> Outcome<Transfer<FileRecord>> {
    if (files == nullptr) return missing("files");
    if (id == nullptr) return missing("id");
    const auto entries = metadataFrom(metadata, count, "metadata");
    if (!entries) return entries.error();
    return files->client.update(FileId(id), *entries);
  });
}

varo_transfer* varo_files_remove(const varo_files* files, const char* id) {
  return started<std::uint64_t>([&]() -> Outcome<Transfer<std::uint64_t>> {
    if (files == nullptr) return missing("files");
    if (id == nullptr) return missing("id");
    return files->client.remove(FileId(id));
  });
}

varo_transfer* varo_files_remove_where(const varo_files* files, const varo_entry* terms,
                                       size_t count) {
  return started<std::uint64_t>([&]() -> Outcome<Transfer<std::uint64_t>> {
    if (files == nullptr) return missing("files");
    auto filter = filterFrom(terms, count);
    if (!filter) return std::move(filter).error();
    return files->client.removeWhere(*std::move(filter));
  });
}

const varo_entry* varo_file_entry(const varo_file* file, const char* name) {
  if (file == nullptr || name == nullptr) return nullptr;
  for (const varo_entry& entry : std::span(file->metadata, file->metadata_count)) {
    if (std::string_view(entry.name) == name) return &entry;
  }
  return nullptr;
}
