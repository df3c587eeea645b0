#pragma once

#include <cstdint>
#include <optional>

namespace varo::sandbox {

/// How the service carries out a delete.
struct DeleteKind {
  enum class Mode {
    kNow,       ///< The answer says that the files are gone.
    kAccepted,  ///< The answer is an address to poll, and the files go once `polls` are made.
    kNever,     ///< Accepted, but every poll says that the service still works.
    kBoolean,   ///< As accepted, but the end is told as a boolean of JSON instead of a text.
    kFailing,   ///< Accepted, but after `polls` every further one fails; the files stay.
  };

  Mode mode = Mode::kNow;
  /// So many polls are told that the service still works before the first that is told otherwise.
  std::uint32_t polls = 1;
  /// Of a failing poll: its HTTP status, 400 to 599, and its "opstatus". A status alone is answered
  /// with plain text, as a gateway does; neither means an "opstatus" of the sandbox's own.
  std::optional<int> httpStatus = std::nullopt;
  std::optional<int> opstatus = std::nullopt;

  friend bool operator==(const DeleteKind&, const DeleteKind&) = default;
};

}  // namespace varo::sandbox
