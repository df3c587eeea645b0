#pragma once

#include "Platform/Foundation/Mutex.h"

#include <boost/json/fwd.hpp>

#include <cstdint>
#include <optional>
#include <string_view>

namespace varo::sandbox {

/// How the service carries out a delete.
struct DeleteKind {
  enum class Mode {
    kNow,       ///< The response says that the files are gone.
    kAccepted,  ///< The response is an address to poll, and the files go once `polls` are made.
    kNever,     ///< Accepted, but every poll says that the service still works.
    kBoolean,   ///< As accepted, but the end is told as a boolean of JSON instead of a text.
    kFailing,   ///< Accepted, but after `polls` every further one fails; the files stay.
  };

  Mode mode = Mode::kNow;
  /// How many polls are told that the service still works, before one is told the end.
  std::uint32_t polls = 1;
  /// Of a failing poll: its HTTP status, 400 to 599, and its "opstatus". A status alone is sent
  /// with plain text, as a gateway does; neither means an "opstatus" of the sandbox's own.
  std::optional<int> httpStatus = std::nullopt;
  std::optional<int> opstatus = std::nullopt;

  friend bool operator==(const DeleteKind&, const DeleteKind&) = default;
};

/// How files are deleted that wish for nothing themselves; a tester may change it while the sandbox
/// runs. Thread-safe.
class DeleteDefault {
 public:
  explicit DeleteDefault(DeleteKind kind) : initial_(kind), kind_(kind) {}

  [[nodiscard]] DeleteKind get() const {
    const platform::MutexLock lock(mutex_);
    return kind_;
  }
  void set(DeleteKind kind) {
    const platform::MutexLock lock(mutex_);
    kind_ = kind;
  }
  /// Back to what it was at the beginning.
  void reset() { set(initial_); }

  /// What `set` changes entries of.
  [[nodiscard]] DeleteKind initial() const { return initial_; }

 private:
  const DeleteKind initial_;
  mutable platform::Mutex mutex_;
  DeleteKind kind_ VARO_GUARDED_BY(mutex_);
};

/// The metadata entry by which a file says how it is deleted: an object, or the text of one.
inline constexpr std::string_view kDeleteWish = "sandbox_delete";

/// `defaults` changed as the entries "mode" ("now", "accepted", "never", "boolean", "failing"),
/// "polls", "status" and "opstatus" of `wish` say. Nothing when an entry is unknown or has a value
/// of another kind or range.
[[nodiscard]] std::optional<DeleteKind> deleteKindFrom(const boost::json::object& wish,
                                                       DeleteKind defaults);

/// What `metadata` wishes: `defaults` when it has no wish, nothing when its wish is not valid.
[[nodiscard]] std::optional<DeleteKind> wishedDeleteKind(const boost::json::object& metadata,
                                                         DeleteKind defaults);

}  // namespace varo::sandbox
