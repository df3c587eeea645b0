#pragma once

#include "varo/c/outcome.h"

#ifdef __cplusplus
extern "C" {
#endif

/// One operation that is under way, and its outcome.
///
/// - The functions that start one never give NULL: what is wrong, a NULL argument too, is the
///   failure of its outcome. It comes to exactly one outcome, whatever happens.
/// - It is given back by `varo_transfer_release` or `varo_transfer_detach`.
/// - Its callbacks run on threads of the library, one at a time; those that are due at its
///   release, on the thread that releases it. They may call anything, the functions of the
///   transfer included, and may block. No exception may leave them.
typedef struct varo_transfer varo_transfer;

typedef enum varo_state {
  VARO_WAITING = 0,      ///< for its turn
  VARO_RUNNING = 1,      ///< requests are under way
  VARO_PAUSED = 2,       ///< by `varo_transfer_pause`
  VARO_BACKING_OFF = 3,  ///< a request waits for its next attempt; others of it may run
  VARO_DONE = 4,         ///< has its outcome

  VARO_STATE_HAS_32_BITS = 0x7fffffff
} varo_state;

/// How far a transfer is.
typedef struct varo_progress {
  size_t size;
  /// Bytes. Never decreases.
  uint64_t done;
  /// Bytes; 0 where it is not known (yet).
  uint64_t total;
  /// Over the last seconds.
  double bytes_per_second;
  /// -1 where total or rate are not known.
  int64_t seconds_left;
  /// Of the request that failed last: 1 for the first, and again once one succeeds or bytes come.
  int attempt;
} varo_progress;

/// `progress` is there during the call.
typedef void (*varo_progress_fn)(void* user, const varo_progress* progress);
/// `outcome` is there during the call.
typedef void (*varo_done_fn)(void* user, const varo_outcome* outcome);

/// Gives the bytes of an upload: fills the front of `buffer`, of `length` bytes, and returns how
/// many it put there; 0 at the end. A negative number, or more than `length`, fails the transfer
/// with `VARO_LOCAL_FILE`. Called on a thread of the library, one call at a time; it may block.
///
/// Not called any more, nor being called, when the done callback is called and when
/// `varo_transfer_release` has returned.
typedef int64_t (*varo_read_fn)(void* user, void* buffer, size_t length);
/// Of a `varo_read_fn`, where nobody knows before its end how many bytes it gives.
#define VARO_UNKNOWN_LENGTH UINT64_MAX
/// Takes the bytes of a download, in order and without a gap. Returns 0; anything else ends the
/// transfer. Called as a `varo_read_fn` is.
typedef int (*varo_write_fn)(void* user, const void* bytes, size_t length);

/// What to do where the file of a download is there already.
typedef enum varo_if_exists {
  VARO_IF_EXISTS_FAIL = 0,     ///< `VARO_CONFLICT`, nothing is fetched
  VARO_IF_EXISTS_REPLACE = 1,  ///< by the new file, in one step, at the end
  VARO_IF_EXISTS_KEEP = 2,     ///< nothing is fetched, and the file that is there is the outcome
  VARO_IF_EXISTS_NUMBER = 3,   ///< another name: "photo (1).jpg"

  VARO_IF_EXISTS_HAS_32_BITS = 0x7fffffff
} varo_if_exists;

/// Has `callback` called with the progress, at most ten times a second, and once more at the end.
/// Replaces an earlier one; NULL for none. Anything but `VARO_OK`: it will not be called.
VARO_API varo_code varo_transfer_on_progress(varo_transfer* transfer, varo_progress_fn callback,
                                             void* user);
/// Has `callback` called once with the outcome, also where that is there already. Replaces an
/// earlier one that was not called yet. Anything but `VARO_OK`: it will not be called.
VARO_API varo_code varo_transfer_on_done(varo_transfer* transfer, varo_done_fn callback,
                                         void* user);

/// Gives up: the network stops at once, and the outcome is `VARO_CANCELLED`, unless it was on its
/// way already. Returns without waiting.
VARO_API varo_code varo_transfer_cancel(varo_transfer* transfer);
/// Stops the network at once and keeps what was reached; `varo_transfer_resume` goes on from
/// there. Both do nothing in other states.
VARO_API varo_code varo_transfer_pause(varo_transfer* transfer);
VARO_API varo_code varo_transfer_resume(varo_transfer* transfer);

/// `VARO_DONE` for NULL.
VARO_API varo_state varo_transfer_state(const varo_transfer* transfer);
/// Fills `progress`, whose `size` has to be set.
VARO_API varo_code varo_transfer_progress(const varo_transfer* transfer, varo_progress* progress);

/// Waits for the outcome, for at most `timeout_ms`; a negative number waits for as long as it
/// takes. The outcome's code, or `VARO_PENDING`. May be called inside any callback of progress or
/// end.
VARO_API varo_code varo_transfer_wait(const varo_transfer* transfer, int64_t timeout_ms);
/// At every call the same, and there until the transfer is given back. NULL where there is none
/// yet.
VARO_API const varo_outcome* varo_transfer_outcome(const varo_transfer* transfer);

/// Gives the transfer back: cancels what still runs, and waits for callbacks that are being
/// called. Afterwards none of them runs any more. Inside one of its own callbacks it does not wait
/// for that one. NULL is fine.
VARO_API void varo_transfer_release(varo_transfer* transfer);
/// Gives the handle back and lets the operation go on to its end: its callbacks are called. NULL
/// is fine.
VARO_API void varo_transfer_detach(varo_transfer* transfer);

#ifdef __cplusplus
}
#endif
