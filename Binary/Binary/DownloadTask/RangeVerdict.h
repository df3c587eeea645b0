#pragma once

#include "Binary/Binary/DownloadTask/ObjectValidator.h"

#include <cstdint>
#include <optional>
#include <string>

namespace varo::binary {

/// How many ranges with bytes may come for each one that the object's size needs. A server that
/// sends shorter ranges than it was asked for needs several; beyond this number the download would
/// never end.
inline constexpr std::int64_t kMaxRangesForOneNeeded = 64;
/// How many ranges may come of an object whose size the server does not state.
inline constexpr std::int64_t kMaxRangesOfUnknownSize = 65'536;

/// What is known of an object from the ranges so far.
struct RangeKnowledge {
  ObjectValidator object = {};
  std::int64_t _totalFileSize = 0;   // bytes, as published: 0 while unknown, and for good after "*"
  bool _isAsteriskRecieved = false;  // the server did not state the size when it first could
  std::int64_t bytesPublished = 0;   // that the listener has had, from the object's first on
  std::int64_t ranges = 0;           // that brought bytes

  friend bool operator==(const RangeKnowledge&, const RangeKnowledge&) = default;
};

/// A range that was asked for, and what was known then.
struct RangeQuestion {
  RangeKnowledge known = {};
  std::int64_t offset = 0;     // of the range's first byte
  std::int64_t chunkSize = 1;  // bytes of a range; at least 1
  bool isSafe = false;         // by `TransferPolicy::kSafe`
  bool isStreamed = false;     // what was published is given away
  /// The first range of a run that resumes a partial file, whose bytes are known to be of
  /// `known.object`.
  bool isFirstOfResumed = false;
  bool hasStartedOver = false;  // in this run
  /// Asked for before the range in front of it has arrived.
  bool isAhead = false;

  /// The position of the range's last byte, which the size of the object limits where it is known.
  [[nodiscard]] std::int64_t last() const noexcept;
  [[nodiscard]] std::int64_t length() const noexcept { return last() - offset + 1; }
  /// Whether the object may be fetched from its first byte once more: once a run, and only where
  /// what was published can be written anew.
  [[nodiscard]] bool mayStartOver() const noexcept { return !isStreamed && !hasStartedOver; }
};

/// What a response says.
struct RangeAnswer {
  int status = 0;
  std::string contentRange = {};   // the field; empty for none
  ObjectValidator validator = {};  // of the fields; its `total` is not used
  std::int64_t size = 0;           // bytes of the body, decoded
  /// Of a 200: the body tells of an error, or is more than can be taken, instead of the object.
  bool isError = false;
  std::optional<std::string> errorMessage = {};
};

/// What follows from a response.
struct RangeVerdict {
  enum class Kind {
    kRange,      ///< The body is the range that was asked for; publish it.
    kWhole,      ///< The body is the whole object; publish it at offset 0. The download has ended.
    kEnd,        ///< An object of unknown size has ended where the range begins; publish the end.
    kAllThere,   ///< Nothing is left to fetch. The download has ended.
    kStartOver,  ///< It is another object, or no longer the same: ask for it from its first byte.
    kError,      ///< The download has failed with `code` and `message`.
  };
  Kind kind = Kind::kError;
  RangeKnowledge known = {};  // from now on
  bool isComplete = false;    // of a `kRange`: it is the object's last
  std::int64_t code = 0;      // of a `kError`
  std::optional<std::string> message = {};
};

/// Decides about a response, from nothing but its arguments. What a range brings is taken only if
/// it begins where it was asked to begin, is as long as it says and no longer than asked for, and
/// is of the object that is known:
/// - the size, once known, is the same;
/// - strong entity tags are equal; under the safe policy weak ones match too;
/// - where no strong tags tell, "Last-Modified" is the same, under the safe policy and, under both,
///   in the first response of a run that resumes a partial file.
///
/// Another object starts over, once, under the safe policy and in that first response; else it is
/// `kCodeIntegrityCheckFailed`.
[[nodiscard]] RangeVerdict judge(const RangeQuestion& question, const RangeAnswer& answer);

}  // namespace varo::binary
