#pragma once

#include "Client/PartPlan.h"
#include "Platform/Network/NetworkTuning.h"

#include <algorithm>
#include <cstdint>

/// What requests take of memory at most, in bytes: an operation reserves it for as many as it has
/// under way at once. What belongs to the application is not counted: the bytes of a
/// `Source::bytes`, the records of a list.
namespace varo::detail::memory {

namespace tuning = platform::tuning;

/// A response: what stays of it in memory before the rest goes to a file, its head, and what is
/// gathered for that file.
inline constexpr std::uint64_t kResponse =
    tuning::kSpoolThreshold + tuning::kMaxHeaderBytes + tuning::kWriteSize;
/// A connection: what libcurl reads at once, and about as much as TLS and the handle take.
inline constexpr std::uint64_t kConnection = tuning::kReceiveBuffer + std::uint64_t{128} * 1024;
/// A piece of a file that is copied, hashed, or handed to a `Sink`.
inline constexpr std::uint64_t kPiece = std::uint64_t{256} * 1024;

/// One request with little to send.
inline constexpr std::uint64_t kRequest = kConnection + kResponse;

/// One that sends a body of `bytes`, which is read from its file piece by piece.
[[nodiscard]] constexpr std::uint64_t sending(std::uint64_t bytes) noexcept {
  return kRequest + kPiece + std::min<std::uint64_t>(bytes, tuning::kUploadBuffer);
}

/// One that gets `bytes` at most, which go to a file or a `Sink`.
[[nodiscard]] constexpr std::uint64_t getting(std::uint64_t bytes) noexcept {
  return kRequest - tuning::kSpoolThreshold + kPiece +
         std::min<std::uint64_t>(bytes, tuning::kSpoolThreshold);
}

/// As many as may be under way at once, by an option that nobody has checked yet.
[[nodiscard]] constexpr std::uint64_t sideBySide(int atOnce, std::uint64_t each) noexcept {
  return static_cast<std::uint64_t>(std::clamp(atOnce, 1, kMostSideBySide)) * each;
}

}  // namespace varo::detail::memory
