#include "Client/C/COptions.h"
#include "Client/C/COutcome.h"
#include "Client/C/CTransfer.h"
#include "Client/C/CValues.h"
#include "Client/C/Created.h"
#include "Client/C/GivenStruct.h"
#include "varo/blobs.h"
#include "varo/c/blobs.h"

#include <memory>
#include <span>
#include <string>
#include <utility>

struct varo_blobs {
  varo::BlobStore store;
  /// Also where none of the functions of the options holds it.
  std::shared_ptr<varo::capi::UserData> user;
};

struct varo_watch {
  varo::BlobWatch watch;
};

namespace varo::capi {

namespace {

static_assert(static_cast<int>(BlobStatus::kNotFetched) == VARO_BLOB_NOT_FETCHED);
static_assert(static_cast<int>(BlobStatus::kFetching) == VARO_BLOB_FETCHING);
static_assert(static_cast<int>(BlobStatus::kPaused) == VARO_BLOB_PAUSED);
static_assert(static_cast<int>(BlobStatus::kFailed) == VARO_BLOB_FAILED);
static_assert(static_cast<int>(BlobStatus::kAvailable) == VARO_BLOB_AVAILABLE);
static_assert(static_cast<int>(BlobStatus::kWaitsForUpload) == VARO_BLOB_WAITS_FOR_UPLOAD);
static_assert(static_cast<int>(BlobStatus::kUploading) == VARO_BLOB_UPLOADING);
static_assert(static_cast<int>(BlobStatus::kDeletionWaits) == VARO_BLOB_DELETION_WAITS);
static_assert(static_cast<int>(BlobStatus::kBeingDeleted) == VARO_BLOB_BEING_DELETED);
static_assert(static_cast<int>(BlobStatus::kOther) == VARO_BLOB_OTHER);
static_assert(static_cast<int>(BlobEncoding::kBytes) == VARO_BLOB_BYTES);
static_assert(static_cast<int>(BlobEncoding::kBase64) == VARO_BLOB_BASE64);

struct GivenService {
  BlobService service;
  std::shared_ptr<UserData> user;
};

Outcome<GivenService> serviceFrom(const varo_blob_service* from) {
  if (from == nullptr) return missing("service");
  const auto given = givenStruct(from, "varo_blob_service");
  if (!given) return given.error();
  auto options = optionsFrom(given->options);
  if (!options) return std::move(options).error();
  auto parameters =
      pairsFrom(given->parameters, given->parameter_count, "varo_blob_service::parameters");
  if (!parameters) return std::move(parameters).error();
  if (given->encoding != VARO_BLOB_BYTES && given->encoding != VARO_BLOB_BASE64) {
    return invalid("varo_blob_service::encoding is none of varo_blob_encoding");
  }
  GivenService made;
  made.user = std::move(options->user);
  BlobService& service = made.service;
  service.options = std::move(options->options);
  service.scope = textFrom(given->scope);
  service.object = textFrom(given->object);
  if (given->range_size != 0) service.rangeSize = Bytes(given->range_size);
  service.encoding = static_cast<BlobEncoding>(given->encoding);
  service.clientId = textFrom(given->client_id);
  service.syncSessionId = textFrom(given->sync_session_id);
  service.parameters = *std::move(parameters);
  if (given->parallel_ranges != 0) service.parallelRanges = given->parallel_ranges;
  return made;
}

/// `argument` is what to call it in a failure.
Outcome<BlobRef> refFrom(const varo_blob_ref* from, const std::string& argument) {
  if (from == nullptr) return missing(argument.c_str());
  if (from->table == nullptr) return missing((argument + "->table").c_str());
  if (from->column == nullptr) return missing((argument + "->column").c_str());
  auto keys = metadataFrom(from->keys, from->key_count, (argument + "->keys").c_str());
  if (!keys) return std::move(keys).error();
  return BlobRef{from->table, from->column, *std::move(keys)};
}

Outcome<std::vector<BlobRef>> refsFrom(const varo_blob_ref* refs, std::size_t count) {
  if (refs == nullptr && count > 0) return missing("refs");
  std::vector<BlobRef> all;
  all.reserve(count);
  for (std::size_t at = 0; at < count; ++at) {
    auto ref = refFrom(&refs[at], "refs[" + std::to_string(at) + "]");
    if (!ref) return std::move(ref).error();
    all.push_back(*std::move(ref));
  }
  return all;
}

/// What `ask` says of a blob, an `Outcome<T>`.
template <typename T, typename Ask>
varo_outcome* askedAbout(const varo_blobs* blobs, const varo_blob_ref* blob, Ask ask) {
  return answered([&]() -> Outcome<T> {
    if (blobs == nullptr) return missing("blobs");
    const auto ref = refFrom(blob, "blob");
    if (!ref) return ref.error();
    return ask(blobs->store, *ref);
  });
}

}  // namespace

}  // namespace varo::capi

using namespace varo::capi;
using varo::BlobRef;
using varo::BlobState;
using varo::BlobStore;
using varo::Outcome;
using varo::Transfer;
using Path = std::filesystem::path;
varo_code varo_blobs_open(const char* database, const char* files, const varo_blob_service* service,
                          varo_blobs** blobs, varo_failure** failure) {
  return created(blobs, "blobs", failure, [&]() -> Outcome<std::unique_ptr<varo_blobs>> {
    if (database == nullptr) return missing("database");
    if (files == nullptr) return missing("files");
    auto given = serviceFrom(service);
    if (!given) return std::move(given).error();
    auto store = BlobStore::open(database, files, std::move(given->service));
    if (!store) return std::move(store).error();
    auto handle = std::make_unique<varo_blobs>(varo_blobs{*store, given->user});
    given->user->adopt();
    return handle;
  });
}

void varo_blobs_free(varo_blobs* blobs) { const std::unique_ptr<varo_blobs> owned(blobs); }

varo_transfer* varo_blobs_fetch(const varo_blobs* blobs, const varo_blob_ref* blob) {
  return started<Path>([&]() -> Outcome<Transfer<Path>> {
    if (blobs == nullptr) return missing("blobs");
    auto ref = refFrom(blob, "blob");
    if (!ref) return std::move(ref).error();
    return blobs->store.fetch(*std::move(ref));
  });
}

varo_transfer* varo_blobs_fetch_all(const varo_blobs* blobs, const varo_blob_ref* refs,
                                    size_t count) {
  using States = std::vector<BlobState>;
  return started<States>([&]() -> Outcome<Transfer<States>> {
    if (blobs == nullptr) return missing("blobs");
    auto all = refsFrom(refs, count);
    if (!all) return std::move(all).error();
    return blobs->store.fetchAll(*std::move(all));
  });
}

varo_outcome* varo_blobs_of(const varo_blobs* blobs, const char* table, const char* column,
                            const char* const* key_columns, size_t key_column_count) {
  return answered([&]() -> Outcome<std::vector<BlobRef>> {
    if (blobs == nullptr) return missing("blobs");
    if (table == nullptr) return missing("table");
    if (column == nullptr) return missing("column");
    if (key_columns == nullptr && key_column_count > 0) return missing("key_columns");
    varo::BlobColumn of{table, column, {}};
    for (const char* name : std::span(key_columns, key_column_count)) {
      if (name == nullptr) return invalid("key_columns has a name that is NULL");
      of.keyColumns.emplace_back(name);
    }
    return blobs->store.blobsOf(of);
  });
}

varo_outcome* varo_blobs_state(const varo_blobs* blobs, const varo_blob_ref* blob) {
  return askedAbout<BlobState>(
      blobs, blob, [](const BlobStore& store, const BlobRef& ref) { return store.state(ref); });
}

varo_outcome* varo_blobs_states(const varo_blobs* blobs) {
  return answered([&]() -> Outcome<std::vector<BlobState>> {
    if (blobs == nullptr) return missing("blobs");
    return blobs->store.states();
  });
}

varo_outcome* varo_blobs_path(const varo_blobs* blobs, const varo_blob_ref* blob) {
  return askedAbout<Path>(
      blobs, blob, [](const BlobStore& store, const BlobRef& ref) { return store.path(ref); });
}

varo_outcome* varo_blobs_remove(const varo_blobs* blobs, const varo_blob_ref* blob,
                                varo_file_removal when) {
  return askedAbout<BlobState>(
      blobs, blob, [&](const BlobStore& store, const BlobRef& ref) -> Outcome<BlobState> {
        if (when == VARO_FILE_LEFT_TO_SYNC) return store.remove(ref);
        if (when == VARO_FILE_NOW) return store.remove(ref, varo::FileRemoval::kNow);
        return invalid("when is none of varo_file_removal");
      });
}

varo_code varo_blobs_watch(const varo_blobs* blobs, varo_blob_fn callback, void* user,
                           varo_watch** watch, varo_failure** failure) {
  return created(watch, "watch", failure, [&]() -> Outcome<std::unique_ptr<varo_watch>> {
    if (blobs == nullptr) return missing("blobs");
    if (callback == nullptr) return missing("callback");
    auto told = [callback, user](const BlobState& state) {
      const OwnedBlob blob(state);
      callback(user, &blob);
    };
    return std::make_unique<varo_watch>(varo_watch{blobs->store.watch(std::move(told))});
  });
}

void varo_watch_release(varo_watch* watch) { const std::unique_ptr<varo_watch> owned(watch); }

const char* varo_blob_status_name(varo_blob_status status) {
  const bool isKnown = status >= VARO_BLOB_NOT_FETCHED && status <= VARO_BLOB_OTHER;
  // Literals, so they end with NUL.
  return varo::nameOf(isKnown ? static_cast<varo::BlobStatus>(status) : varo::BlobStatus::kOther)
      .data();
}
