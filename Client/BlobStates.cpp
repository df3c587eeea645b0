#include "Client/BlobStates.h"

#include "Binary/Binary/BinaryDataManager/BlobStoreTable.h"
#include "Client/Failures.h"
#include "Client/FileRecords.h"

#include <fmt/format.h>

#include <cstdint>
#include <optional>
#include <utility>

namespace varo {

std::string_view nameOf(BlobStatus status) noexcept {
  switch (status) {
    case BlobStatus::kNotFetched:
      return "notFetched";
    case BlobStatus::kFetching:
      return "fetching";
    case BlobStatus::kPaused:
      return "paused";
    case BlobStatus::kFailed:
      return "failed";
    case BlobStatus::kAvailable:
      return "available";
    case BlobStatus::kWaitsForUpload:
      return "waitsForUpload";
    case BlobStatus::kUploading:
      return "uploading";
    case BlobStatus::kDeletionWaits:
      return "deletionWaits";
    case BlobStatus::kBeingDeleted:
      return "beingDeleted";
    case BlobStatus::kOther:
      break;
  }
  return "other";
}

bool BlobState::hasFile() const noexcept {
  return path && (status == BlobStatus::kAvailable || status == BlobStatus::kWaitsForUpload ||
                  status == BlobStatus::kUploading);
}

namespace detail {

using platform::Dictionary;
using platform::Value;
namespace blobs = binary::blobs;

namespace {

BlobStatus statusOf(std::int64_t state) {
  switch (state) {
    case 0:  // a row of the sync engine's that nobody has asked for yet
    case binary::kDownloadNotStarted:
      return BlobStatus::kNotFetched;
    case binary::kDownloadStarted:
      return BlobStatus::kFetching;
    case binary::kDownloadPaused:
      return BlobStatus::kPaused;
    case binary::kDownloadErrored:
      return BlobStatus::kFailed;
    case binary::kFileAvailable:
      return BlobStatus::kAvailable;
    case binary::kUploadAccepted:
      return BlobStatus::kWaitsForUpload;
    case binary::kUploadInProgress:
      return BlobStatus::kUploading;
    case binary::kDeleteAccepted:
      return BlobStatus::kDeletionWaits;
    case binary::kDeleteInProgress:
      return BlobStatus::kBeingDeleted;
    default:
      return BlobStatus::kOther;
  }
}

std::string reasonFor(BlobStatus status, std::int64_t state) {
  switch (status) {
    case BlobStatus::kNotFetched:
      return "it has not been fetched yet";
    case BlobStatus::kFetching:
      return "a fetch of it runs, or was broken off by the end of its process";
    case BlobStatus::kPaused:
      return "a fetch of it was paused or cancelled; the next one goes on from there";
    case BlobStatus::kFailed:
      return "the last fetch of it failed; the next one goes on from there";
    case BlobStatus::kAvailable:
      return "its file is complete";
    case BlobStatus::kWaitsForUpload:
      return "its file is complete, and waits to be uploaded by the sync engine";
    case BlobStatus::kUploading:
      return "its file is complete, and is being uploaded by the sync engine";
    case BlobStatus::kDeletionWaits:
      return "it waits to be deleted by the sync engine";
    case BlobStatus::kBeingDeleted:
      return "it is being deleted by the sync engine";
    case BlobStatus::kOther:
      break;
  }
  return fmt::format("the table of blobs says {} of it, which is no state that is known", state);
}

/// SQL's NULL is read as a text.
std::string textIn(const Dictionary& row, const char* column) {
  std::string text = row[column].textValue();
  return text == blobs::kNull ? std::string() : text;
}

std::string quoted(const Scalar& value) {
  if (const auto* text = std::get_if<std::string>(&value)) return fmt::format("\"{}\"", *text);
  return dictionaryFrom({{"", value}})[""].textValue();
}

}  // namespace

BlobState stateFrom(const Dictionary& row, BlobRef ref) {
  BlobState state;
  state.ref = std::move(ref);
  if (state.ref.table.empty()) {
    state.ref.table = textIn(row, blobs::kTableName);
    state.ref.column = textIn(row, blobs::kColumnName);
  }
  state.id = BlobId(row[blobs::kId].textValue());
  const std::int64_t number = row[blobs::kState].integerValue();
  state.status = statusOf(number);
  state.reason = reasonFor(state.status, number);
  if (auto path = binary::localPathIn(row)) state.path = *std::move(path);
  const std::int64_t* size = row[blobs::kSize].integer();
  if (size != nullptr && *size >= 0 && state.hasFile()) {
    state.size = Bytes(static_cast<std::uint64_t>(*size));
  }
  return state;
}

BlobState notFetched(BlobRef ref) {
  BlobState state;
  state.ref = std::move(ref);
  state.reason = reasonFor(state.status, 0);
  return state;
}

std::string describe(const BlobRef& blob) {
  std::string keys;
  for (const auto& [name, value] : blob.keys) {
    keys += fmt::format("{}{} = {}", keys.empty() ? "" : ", ", name, quoted(value));
  }
  return fmt::format("{} of {} ({})", blob.column, blob.table, keys);
}

std::string identityOf(const BlobRef& blob) {
  std::string identity;
  // With its length before it, no text can be taken for two.
  const auto add = [&identity](const std::string& text) {
    identity += fmt::format("{}:{}", text.size(), text);
  };
  add(blob.table);
  add(blob.column);
  for (const auto& [name, value] : blob.keys) {
    add(name);
    identity += static_cast<char>('0' + value.index());
    add(quoted(value));
  }
  return identity;
}

Outcome<void> check(const BlobRef& blob, std::string_view about) {
  const auto wrong = [about](const char* what) {
    return failureOf(Kind::kInvalidArgument, fmt::format("{}: {}", about, what));
  };
  if (blob.table.empty()) return wrong("BlobRef::table is empty");
  if (blob.column.empty()) return wrong("BlobRef::column is empty");
  if (blob.keys.empty()) return wrong("BlobRef::keys is empty, which names no record");
  return {};
}

Failure databaseFailure(const platform::ErrorPtr& error, std::string_view about) {
  Failure failure = failureFrom(error, about);
  const bool isKept = failure.kind == Kind::kDiskFull || failure.kind == Kind::kInvalidArgument;
  if (!isKept) failure.kind = Kind::kDatabase;
  return failure;
}

}  // namespace detail

}  // namespace varo
