#include "Binary/Binary/Utils/BlockCall.h"

#include "Binary/Binary/SourceNames.h"
#include "Binary/BinaryFileAdapterWithMetadata/Constants/ErrorConstants.h"

#include <exception>
#include <string_view>

namespace varo::binary {
namespace {

constexpr std::string_view kBlockThrew = "A callback of the application threw, exception : %@";

}  // namespace

void callBlock(const std::function<void()>& call) noexcept {
  try {
    call();
  } catch (const std::exception& exception) {
    logger().logError(kBlockThrew, exception.what());
  } catch (...) {
    logger().logError(kBlockThrew, kUnknownException);
  }
}

}  // namespace varo::binary
