#pragma once

#include "Binary/Binary/DownloadTask/DownloadTask.h"
#include "Platform/Foundation/Error.h"
#include "Platform/Foundation/Value.h"

#include <cstdint>
#include <optional>

namespace varo::binary {

/// What the row of a download's blob says, and what is noted there. The row is that of the task's
/// name in the database that its input names. Under `TransferPolicy::kSafe` one whose deletion is
/// recorded keeps its state, and takes a path only where it has none. Stateless, thread-safe.
class DownloadRows {
 public:
  DownloadRows() = delete;

  /// {"FilePath", "state"} where the file is there already, as the row says; else none, with
  /// `withError` set: code 5 for no row, 4 for another state.
  [[nodiscard]] static std::optional<platform::Dictionary> checkIfFileAvailableForTask(
      const DownloadTask& task, platform::ErrorPtr* withError);
  /// Has the task go on from the size of its file: sets the input's "TotalBytesDownloaded".
  static void setMetaDataForTask(DownloadTask& task);
  /// Has the task begin no further on than its file reaches, which may have been cut, moved or
  /// removed since the input's "TotalBytesDownloaded" was set.
  static void limitOffsetToFile(DownloadTask& task);

  /// Notes that the file is complete, with what the task's `output` says of it. A failure is
  /// logged, here and below: the row then says less than is true, and the next download finds out.
  static void updateDBForTask(const DownloadTask& task, const platform::Dictionary& output);
  /// Notes a state, and, unless that is `kDownloadStarted`, the file's path where it is known.
  static void updateStateOfTask(const DownloadTask& task, std::int32_t withState,
                                const platform::Dictionary& output);
  /// Notes where the file of a download that runs is, so that one whose process dies can go on.
  static void noteFileOfTask(const DownloadTask& task, const platform::Dictionary& output);
};

}  // namespace varo::binary
