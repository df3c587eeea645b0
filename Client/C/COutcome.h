#pragma once

#include "Client/C/CFailure.h"
#include "varo/blobs.h"
#include "varo/c/blobs.h"
#include "varo/c/files.h"
#include "varo/c/objects.h"
#include "varo/c/outcome.h"
#include "varo/files.h"
#include "varo/objects.h"
#include "varo/outcome.h"

#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace varo::capi {

/// A record as C sees it, and what it points to.
struct OwnedFile final : varo_file {
  explicit OwnedFile(const FileRecord& from);
  OwnedFile(const OwnedFile&) = delete;
  OwnedFile& operator=(const OwnedFile&) = delete;

  const FileRecord record;
  const std::vector<varo_entry> entries;
};

/// A blob's state as C sees it, and what it points to.
struct OwnedBlob final : varo_blob {
  explicit OwnedBlob(const BlobState& from);
  OwnedBlob(const OwnedBlob&) = delete;
  OwnedBlob& operator=(const OwnedBlob&) = delete;

  const BlobState state;
  const std::vector<varo_entry> keys;
  const varo_blob_ref named;
  const std::optional<std::string> file;
  std::optional<OwnedFailure> ownFailure;
};

/// An object as C sees it, and what it points to.
struct OwnedObject final : varo_object {
  explicit OwnedObject(const ObjectInfo& from);
  OwnedObject(const OwnedObject&) = delete;
  OwnedObject& operator=(const OwnedObject&) = delete;

  const ObjectInfo info;
};

/// Names of blobs as C sees them, in a row, and what they point to.
struct OwnedRefs {
  std::vector<BlobRef> refs;
  std::vector<std::vector<varo_entry>> keys;
  std::vector<varo_blob_ref> views;
};

}  // namespace varo::capi

/// Immutable once it was made. What does not belong to the operation is empty.
struct varo_outcome {
  varo_outcome() = default;
  /// Of a failure that lives for ever.
  explicit varo_outcome(const varo_failure& lasting) noexcept : failure(&lasting) {}
  varo_outcome(const varo_outcome&) = delete;
  varo_outcome& operator=(const varo_outcome&) = delete;
  ~varo_outcome() = default;

  /// NULL for a success. Points to `ownFailure`, or to what lives for ever.
  const varo_failure* failure = nullptr;
  std::optional<varo::capi::OwnedFailure> ownFailure;
  std::optional<std::string> path;
  std::uint64_t number = 0;
  /// One by one, since C has their addresses. Empty ones need no memory, unlike a deque.
  std::vector<std::unique_ptr<const varo::capi::OwnedFile>> files;
  std::vector<std::unique_ptr<const varo::capi::OwnedBlob>> blobs;
  std::vector<std::unique_ptr<const varo::capi::OwnedObject>> objects;
  varo::capi::OwnedRefs refs;

  [[nodiscard]] varo_code code() const noexcept {
    return failure != nullptr ? failure->code : VARO_OK;
  }
};

namespace varo::capi {

/// Stands for those that there was no memory for. Never freed.
[[nodiscard]] const varo_outcome& noMemoryOutcome() noexcept;

// What an operation gave.
void fill(varo_outcome& outcome, const FileRecord& record);
void fill(varo_outcome& outcome, const std::vector<FileRecord>& records);
void fill(varo_outcome& outcome, const std::filesystem::path& path);
void fill(varo_outcome& outcome, std::uint64_t number);
void fill(varo_outcome& outcome, const BlobState& state);
void fill(varo_outcome& outcome, const std::vector<BlobState>& states);
void fill(varo_outcome& outcome, const std::vector<BlobRef>& refs);
void fill(varo_outcome& outcome, const ObjectInfo& object);
void fill(varo_outcome& outcome, const std::vector<ObjectInfo>& objects);
void fill(varo_outcome& outcome, const ObjectKey& removed);

template <typename T>
[[nodiscard]] std::unique_ptr<varo_outcome> outcomeFrom(const Outcome<T>& from) {
  auto outcome = std::make_unique<varo_outcome>();
  if (from) {
    fill(*outcome, *from);
  } else {
    outcome->failure = &outcome->ownFailure.emplace(from.error());
  }
  return outcome;
}

/// What `ask` gives, an `Outcome` of something above, for the caller to free.
template <typename Ask>
varo_outcome* answered(Ask&& ask) noexcept {
  try {
    return outcomeFrom(std::forward<Ask>(ask)()).release();
  } catch (...) {  // the facade's catch-all: nothing below throws for another reason
    return const_cast<varo_outcome*>(&noMemoryOutcome());  // `varo_outcome_free` leaves it alone
  }
}

}  // namespace varo::capi
