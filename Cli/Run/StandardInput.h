#pragma once

#include "Platform/Foundation/Result.h"

#include <memory>
#include <string>
#include <utility>

namespace varo::platform {
class File;
}

namespace varo::cli {

class Interrupts;

/// A copy of an input that can be read only once: an upload needs to know the size and to read at
/// any place. The file has no name from the start, so that nothing is left behind, however the
/// process ends.
class InputCopy {
 public:
  /// Copies everything that `descriptor` has, piece by piece, into the directory for temporary
  /// files. Errors: domain "POSIX"; ECANCELED after an interrupt.
  [[nodiscard]] static platform::Result<InputCopy> make(int descriptor,
                                                        const Interrupts& interrupts);

  /// Names the copy for this process while this object lives.
  [[nodiscard]] std::string path() const;

 private:
  explicit InputCopy(std::shared_ptr<platform::File> file) : file_(std::move(file)) {}

  std::shared_ptr<platform::File> file_;
};

}  // namespace varo::cli
