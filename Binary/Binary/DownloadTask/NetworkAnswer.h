#pragma once

#include "Binary/Binary/DownloadTask/RangeVerdict.h"
#include "Platform/Foundation/Data.h"
#include "Platform/Network/VRONetworkUtility.h"

#include <cstdint>

namespace varo::binary {

/// How the responses of a download are to be read.
struct AnswerReading {
  bool isOnline = false;        // an object's own server; else the service, which wraps in "d"
  bool isBase64 = false;        // a whole object comes as JSON around its bytes in Base64
  std::uint64_t maxBase64 = 0;  // bytes of that JSON
  bool isSafe = false;          // by `TransferPolicy::kSafe`: such JSON is no object of bytes
};

/// A response, read.
struct NetworkAnswer {
  RangeAnswer said;
  platform::Data body;  // the object's bytes, decoded; `said.size` of them
};

/// Reads a response: its fields, whether a 200 in JSON tells of an error, and an object in Base64.
/// Base64 that cannot be decoded has no bytes. Logs what it finds, with secrets replaced.
[[nodiscard]] NetworkAnswer readAnswer(const platform::HttpResponseInfo& response,
                                       const platform::Data& body, const AnswerReading& reading);

}  // namespace varo::binary
