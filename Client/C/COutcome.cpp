#include "Client/C/COutcome.h"

#include "Client/C/CValues.h"

#include <algorithm>
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

const varo_outcome& noMemoryOutcome() noexcept {
  static const varo_outcome outcome = {.failure = &noMemoryFailure()};
  return outcome;
}

void fill(varo_outcome& outcome, const FileRecord& record) { outcome.files.emplace_back(record); }

void fill(varo_outcome& outcome, const std::vector<FileRecord>& records) {
  for (const FileRecord& record : records) fill(outcome, record);
}

void fill(varo_outcome& outcome, const std::filesystem::path& path) {
  if (!path.empty()) outcome.path = path.string();
}

void fill(varo_outcome& outcome, std::uint64_t number) { outcome.number = number; }

}  // namespace varo::capi

varo_code varo_outcome_code(const varo_outcome* outcome) {
  return outcome != nullptr ? outcome->code() : VARO_INVALID_ARGUMENT;
}

const varo_failure* varo_outcome_failure(const varo_outcome* outcome) {
  return outcome != nullptr ? outcome->failure : &varo::capi::noOutcomeFailure();
}

size_t varo_outcome_count(const varo_outcome* outcome) {
  return outcome != nullptr ? outcome->files.size() : 0;
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
  return &outcome->files[index];
}
