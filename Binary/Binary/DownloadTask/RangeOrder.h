#pragma once

#include "Binary/Binary/DownloadTask/ObjectValidator.h"
#include "Binary/Binary/DownloadTask/RangeVerdict.h"
#include "Binary/Binary/Utils/OperationSettings.h"
#include "Binary/Binary/Utils/RequestSigner.h"
#include "Platform/Foundation/Result.h"
#include "Platform/Foundation/Value.h"
#include "Platform/Network/HttpTransport.h"

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

namespace varo::binary {

/// What a run of a `NetworkTask` asks for: the task's input, read once, and the requests that
/// follow from it. Immutable once unpacked; thread-safe as far as its signer is.
struct RangeOrder {
  using Ptr = std::shared_ptr<const RangeOrder>;

  /// The order that stands in an input context. The text of an error is "Invalid inputs provided to
  /// the network task.", code 999; or under the safe policy `kCodeUploadInvalidParameterDataType`
  /// for a size that is a text and not wholly a number.
  [[nodiscard]] static platform::Result<Ptr> unpackInputContext(const platform::Dictionary& input);

  /// The headers of a request for the question's range: those of the process, then the caller's,
  /// then the signer's, made now, then the range and, under the safe policy, the condition that the
  /// object is still the known one. Errors: those of the signer.
  [[nodiscard]] platform::Result<platform::Dictionary> prepareRequestObject(
      const RangeQuestion& question) const;
  /// The options of that request: settings, limits of its response, where that spools.
  [[nodiscard]] platform::Dictionary optionsFor(const RangeQuestion& question) const;

  [[nodiscard]] bool isBase64() const;

  OperationSettings::Ptr settings;
  std::string _url;
  platform::Dictionary queryParams;
  platform::Dictionary _headers;          // the caller's
  std::shared_ptr<RequestSigner> signer;  // null where requests are not signed
  std::string _responseType;
  std::optional<std::string> _clientID;
  std::optional<std::string> _sessionID;
  platform::Value blobId;
  std::string spoolDirectory;          // empty for none
  std::int64_t _chunkSize = 0;         // bytes of a range
  std::optional<std::int64_t> offset;  // where to begin, as the input says
  std::int64_t _totalFileSize = 0;     // bytes of the object, as the input says; 0 for unknown
  ObjectValidator validator;           // of the bytes before `offset`, as the input says
  bool isOnline = false;
  bool isStreamed = false;  // what is published is given away

 private:
  void buildURL(const platform::Dictionary& input);
};

}  // namespace varo::binary
