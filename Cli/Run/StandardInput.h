#pragma once

#include "Platform/Foundation/Result.h"

#include <memory>
#include <string>
#include <utility>

namespace varo::cli {

class Interrupts;

/// The next line of `descriptor`, without its end; cut at 1 KiB, and shorter at the end of the
/// input and after an interrupt.
[[nodiscard]] std::string readLine(int descriptor, const Interrupts& interrupts);

/// A copy of an input that can be read only once: an upload needs to know the size and to read at
/// any place. The file has no name, so that nothing is left behind, however the process ends. Where
/// the system has no path to such a file, it gets a name when it is complete, and a process that is
/// killed after that leaves it behind.
class InputCopy {
 public:
  /// Copies everything that `descriptor` has, piece by piece, into the directory for temporary
  /// files. Errors: domain "POSIX"; ECANCELED after an interrupt.
  [[nodiscard]] static platform::Result<InputCopy> make(int descriptor,
                                                        const Interrupts& interrupts);

  /// Names the copy for this process while this object lives.
  [[nodiscard]] const std::string& path() const { return path_; }

 private:
  InputCopy(std::shared_ptr<const void> owner, std::string path)
      : owner_(std::move(owner)), path_(std::move(path)) {}

  std::shared_ptr<const void> owner_;  // the open file, or the directory in which it has a name
  std::string path_;
};

}  // namespace varo::cli
