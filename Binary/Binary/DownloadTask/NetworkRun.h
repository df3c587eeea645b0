#pragma once

#include "Binary/Binary/DownloadTask/Buffer.h"
#include "Binary/Binary/DownloadTask/NetworkTask.h"
#include "Platform/TaskEngine/VSTaskError.h"

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

/// What the two halves of `NetworkTask` share: the one that asks and the one that reads answers.
namespace varo::binary {

inline constexpr std::string_view kNetworkTaskName = "networkTask";
inline constexpr std::string_view kNetworkTaskDomain = "Network Task";
/// Of an input that is not valid, and of most answers that are not.
inline constexpr std::int64_t kInvalidInputCode = 999;
inline constexpr std::string_view kResponseTypeBinary = "Binary";
inline constexpr std::string_view kResponseTypeBase64 = "Base64";

struct NetworkTask::Run : Identity {
  std::int64_t number = 0;  // from 1, of the task's runs

  // What is asked for.
  std::string _url;
  platform::Dictionary queryParams;
  platform::Dictionary _headers;
  std::string _responseType{kResponseTypeBinary};
  std::int64_t _chunkSize = 0;  // bytes of a range
  bool isStreamed = false;      // what is published is given away

  // How far it has come, beside the `Identity`.
  std::int64_t _totalBytesDownloaded = 0;  // the next range starts here
  bool hasStartedOver = false;

  // What the last answer was.
  std::optional<platform::Data> _chunkData;
  bool _isBase64OrTotalFile = false;  // the whole object came in one answer
  bool isAllThere = false;            // nothing is left to fetch
  bool startsOver = false;
  bool _isErrorServingData = false;
  std::shared_ptr<const platform::VSTaskError> _cause;  // where that is set

  // Published and not taken; both guarded by the task's `runMutex_`.
  Buffer waiting;
  bool waitsForRoom = false;
};

}  // namespace varo::binary
