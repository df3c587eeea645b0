#include "Client/C/COutcome.h"

#include "Client/C/CValues.h"

#include <algorithm>
#include <chrono>
#include <limits>

namespace varo::capi {

namespace {

std::int64_t bytesOf(const std::optional<Bytes>& size) {
  constexpr std::uint64_t kMost = std::numeric_limits<std::int64_t>::max();
  return size ? static_cast<std::int64_t>(std::min(size->count, kMost)) : -1;
}

/// What is said of an outcome that is not there.
const varo_failure& noOutcomeFailure() noexcept {
  static const varo_failure failure = [] {
    varo_failure view = noMemoryFailure();
    view.code = VARO_INVALID_ARGUMENT;
    view.message = "There is no outcome";
    return view;
  }();
  return failure;
}

}  // namespace

OwnedFile::OwnedFile(const FileRecord& from)
    : varo_file{}, record(from), entries(entriesOf(record.metadata)) {
  size = sizeof(varo_file);
  id = record.id.text().c_str();
  name = record.name.c_str();
  bytes = bytesOf(record.size);
  metadata = entries.data();
  metadata_count = entries.size();
}

OwnedBlob::OwnedBlob(const BlobState& from)
    : varo_blob{},
      state(from),
      keys(entriesOf(state.ref.keys)),
      named{state.ref.table.c_str(), state.ref.column.c_str(), keys.data(), keys.size()},
      file(state.path ? std::optional(state.path->string()) : std::nullopt) {
  size = sizeof(varo_blob);
  ref = &named;
  id = state.id.text().c_str();
  status = static_cast<varo_blob_status>(state.status);
  has_file = state.hasFile() ? 1 : 0;
  reason = state.reason.c_str();
  path = file ? file->c_str() : nullptr;
  bytes = bytesOf(state.size);
  if (state.failure) failure = &ownFailure.emplace(*state.failure);
}

OwnedObject::OwnedObject(const ObjectInfo& from) : varo_object{}, info(from) {
  using std::chrono::milliseconds;
  size = sizeof(varo_object);
  key = info.key.text().c_str();
  bytes = bytesOf(info.size);
  entity_tag = info.entityTag.c_str();
  modified_ms = info.modified
                    ? std::chrono::floor<milliseconds>(*info.modified).time_since_epoch().count()
                    : -1;
  content_type = info.contentType.c_str();
  is_prefix = info.isPrefix ? 1 : 0;
}

const varo_outcome& noMemoryOutcome() noexcept {
  static const varo_outcome outcome(noMemoryFailure());
  return outcome;
}

void fill(varo_outcome& outcome, const FileRecord& record) {
  outcome.files.push_back(std::make_unique<OwnedFile>(record));
}

void fill(varo_outcome& outcome, const std::vector<FileRecord>& records) {
  for (const FileRecord& record : records) fill(outcome, record);
}

void fill(varo_outcome& outcome, const std::filesystem::path& path) {
  if (!path.empty()) outcome.path = path.string();
}

void fill(varo_outcome& outcome, std::uint64_t number) { outcome.number = number; }

void fill(varo_outcome& outcome, const BlobState& state) {
  outcome.blobs.push_back(std::make_unique<OwnedBlob>(state));
}

void fill(varo_outcome& outcome, const std::vector<BlobState>& states) {
  for (const BlobState& state : states) fill(outcome, state);
}

void fill(varo_outcome& outcome, const std::vector<BlobRef>& refs) {
  OwnedRefs& owned = outcome.refs;
  owned.refs = refs;
  owned.keys.reserve(refs.size());
  owned.views.reserve(refs.size());
  for (const BlobRef& ref : owned.refs) {
    const auto& keys = owned.keys.emplace_back(entriesOf(ref.keys));
    owned.views.push_back({ref.table.c_str(), ref.column.c_str(), keys.data(), keys.size()});
  }
}

void fill(varo_outcome& outcome, const ObjectInfo& object) {
  outcome.objects.push_back(std::make_unique<OwnedObject>(object));
  fill(outcome, object.file);
}

void fill(varo_outcome& outcome, const std::vector<ObjectInfo>& objects) {
  for (const ObjectInfo& object : objects) {
    outcome.objects.push_back(std::make_unique<OwnedObject>(object));
  }
}

void fill(varo_outcome& outcome, const ObjectKey& removed) {
  outcome.objects.push_back(std::make_unique<OwnedObject>(ObjectInfo{.key = removed}));
}

}  // namespace varo::capi

varo_code varo_outcome_code(const varo_outcome* outcome) {
  return outcome != nullptr ? outcome->code() : VARO_INVALID_ARGUMENT;
}

const varo_failure* varo_outcome_failure(const varo_outcome* outcome) {
  return outcome != nullptr ? outcome->failure : &varo::capi::noOutcomeFailure();
}

size_t varo_outcome_count(const varo_outcome* outcome) {
  if (outcome == nullptr) return 0;
  return outcome->files.size() + outcome->blobs.size() + outcome->objects.size() +
         outcome->refs.views.size();
}

const char* varo_outcome_path(const varo_outcome* outcome) {
  return outcome != nullptr && outcome->path ? outcome->path->c_str() : nullptr;
}

uint64_t varo_outcome_number(const varo_outcome* outcome) {
  return outcome != nullptr ? outcome->number : 0;
}

void varo_outcome_free(varo_outcome* outcome) {
  if (outcome == &varo::capi::noMemoryOutcome()) return;
  const std::unique_ptr<varo_outcome> owned(outcome);
}

const varo_file* varo_outcome_file(const varo_outcome* outcome, size_t index) {
  if (outcome == nullptr || index >= outcome->files.size()) return nullptr;
  return outcome->files[index].get();
}

const varo_blob* varo_outcome_blob(const varo_outcome* outcome, size_t index) {
  if (outcome == nullptr || index >= outcome->blobs.size()) return nullptr;
  return outcome->blobs[index].get();
}

const varo_blob_ref* varo_outcome_blob_refs(const varo_outcome* outcome) {
  if (outcome == nullptr || outcome->refs.views.empty()) return nullptr;
  return outcome->refs.views.data();
}

const varo_object* varo_outcome_object(const varo_outcome* outcome, size_t index) {
  if (outcome == nullptr || index >= outcome->objects.size()) return nullptr;
  return outcome->objects[index].get();
}
