#pragma once

#include "Binary/Binary/BinaryDataManager/BlobStoreTable.h"
#include "Binary/Binary/Utils/OperationSettings.h"
#include "Platform/Foundation/Error.h"
#include "Platform/Foundation/Result.h"
#include "Platform/Foundation/Value.h"

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

namespace varo::binary {

class FileClaim;

/// The row of one download's blob: what it says, and what is noted there. Under
/// `TransferPolicy::kSafe` a row whose deletion is recorded keeps its state, and takes a path only
/// where it has none. Every call reads or writes the database. Thread-safe.
class DownloadRows {
 public:
  DownloadRows(const std::string& databaseName, std::string blobId,
               OperationSettings::Ptr settings);

  /// {"FilePath", "state"} where the file is there already, as the row says; else none, with
  /// `withError` set: code 5 for no row, 4 for another state. `readRow`, which may be null, is set
  /// to the row, empty for none.
  [[nodiscard]] std::optional<platform::Dictionary> checkIfFileAvailable(
      platform::ErrorPtr* withError, platform::Dictionary* readRow = nullptr) const;
  /// The input to resume a paused download at the end of its file: `input` with
  /// "TotalBytesDownloaded".
  [[nodiscard]] platform::Dictionary withMetaData(platform::Dictionary input) const;
  /// How much of the claimed file is of the object that the row is about.
  struct Beginning {
    /// 0 where that is not known:
    /// - the row is new or names another file;
    /// - whoever wrote the file died in the middle;
    /// - for a new run under the safe policy, the server told neither tag nor date of the object.
    std::int64_t bytes = 0;
    /// It is all of it: its row could not be written.
    bool isWhole = false;
  };
  /// `row` is what it said after the claim; empty for no row.
  [[nodiscard]] Beginning beginningIn(const FileClaim& claim, const platform::Dictionary& row,
                                      bool isNewRun) const;

  /// Notes that the file is complete, with what `output` says of it. Errors: those of
  /// `BlobStoreTable::update`. A failure is logged, here and below.
  [[nodiscard]] platform::Result<void> updateDB(const platform::Dictionary& output) const;
  /// Notes a state, and, unless that is `kDownloadStarted`, the file's path where it is known.
  void updateState(std::int32_t withState, const platform::Dictionary& output) const;
  /// Notes `kDownloadStarted`. Under the compatible policy, where none is read before the next is
  /// written, and where nobody is told of states, this waits for the next commit, `claim` with it;
  /// what is noted later comes after it. A process that dies before leaves the row as it was: a
  /// later run fetches the file anew.
  void noteStart(const std::shared_ptr<FileClaim>& claim) const;
  /// Notes where the file of a running download is, so that it can be resumed if the process dies.
  void noteFile(const platform::Dictionary& output) const;

 private:
  [[nodiscard]] platform::Result<void> update(const platform::Dictionary& values) const;

  const OperationSettings::Ptr settings_;
  const BlobStoreTable table_;
  const std::string blobId_;
};

}  // namespace varo::binary
