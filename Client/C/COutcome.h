#pragma once

#include "Client/C/CFailure.h"
#include "varo/c/files.h"
#include "varo/c/outcome.h"
#include "varo/files.h"
#include "varo/outcome.h"

#include <cstdint>
#include <deque>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
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

}  // namespace varo::capi

/// Immutable once it was made. What does not belong to the operation is empty.
struct varo_outcome {
  /// NULL for a success. Points to `ownFailure`, or to what lives for ever.
  const varo_failure* failure = nullptr;
  std::optional<varo::capi::OwnedFailure> ownFailure;
  std::optional<std::string> path;
  std::uint64_t number = 0;
  /// A deque, since C has their addresses.
  std::deque<varo::capi::OwnedFile> files;

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

}  // namespace varo::capi
