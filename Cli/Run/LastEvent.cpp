#include "Cli/Run/LastEvent.h"

#include "Cli/Failures/CommandErrors.h"
#include "Cli/Run/Operation.h"
#include "Cli/Run/Output.h"
#include "Cli/Run/Session.h"
#include "Platform/Foundation/Error.h"

#include <exception>
#include <new>

namespace varo::cli {

int runToItsLastEvent(Output& output, const std::function<int()>& command) noexcept {
  try {
    try {
      return command();
    } catch (const std::bad_alloc&) {
      (void)output.failure(unexpectedFailure());
    } catch (const std::exception& error) {
      (void)output.failure(
          platform::Error::make(kCommandLineErrorDomain, kCodeExceptionThrown, error.what()));
    }
    // Also when telling the failure throws. Fixed words need no memory.
  } catch (...) {
    output.failWithFixedWords();
  }
  return kExitFailure;
}

}  // namespace varo::cli
