#include "Cli/Run/StandardOutput.h"

#include "Cli/Run/Interrupts.h"
#include "Platform/Foundation/Data.h"
#include "Platform/Foundation/Error.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <poll.h>
#include <string_view>
#include <sys/stat.h>
#include <unistd.h>

namespace varo::cli {

using platform::Error;
using platform::Result;

namespace {

/// How soon an interrupt is noticed while nobody reads.
constexpr int kPollMs = 100;

constexpr std::string_view kWhat = "cannot write";
constexpr std::string_view kWhere = "standard output";

/// A pipe that is ready takes this much without making the writer wait, and promises no more. A
/// regular file makes nobody wait for a reader.
std::size_t largestWrite(int descriptor) {
  struct stat status {};
  const bool isFile = ::fstat(descriptor, &status) == 0 && S_ISREG(status.st_mode);
  return isFile ? SSIZE_MAX : PIPE_BUF;
}

/// 0, or `errno`.
int writePiece(int descriptor, std::string_view piece, std::size_t limit,
               const Interrupts& interrupts) {
  while (!piece.empty()) {
    if (interrupts.raised()) return ECANCELED;
    pollfd target{descriptor, POLLOUT, 0};
    const int ready = ::poll(&target, 1, kPollMs);
    // Round again, past the look at the interrupt.
    if (ready == 0 || (ready < 0 && errno == EINTR)) continue;
    const ssize_t written = ::write(descriptor, piece.data(), std::min(piece.size(), limit));
    if (written >= 0) {
      piece.remove_prefix(static_cast<std::size_t>(written));
    } else if (errno != EINTR && errno != EAGAIN) {
      return errno;
    }
  }
  return 0;
}

}  // namespace

Result<void> writeBytes(int descriptor, const platform::Data& data, const Interrupts& interrupts) {
  return data.forEachPiece(
      [&](std::string_view piece) { return writeBytes(descriptor, piece, interrupts); });
}

Result<void> writeBytes(int descriptor, std::string_view bytes, const Interrupts& interrupts) {
  const int failed = writePiece(descriptor, bytes, largestWrite(descriptor), interrupts);
  if (failed != 0) return Error::fromErrno(failed, kWhat, kWhere);
  return {};
}

}  // namespace varo::cli
