#include "Binary/Binary/Utils/BlockCall.h"

#include "Binary/Binary/SourceNames.h"
#include "Binary/Binary/Utils/UtilsLogTexts.h"
#include "Binary/BinaryFileAdapterWithMetadata/Constants/ErrorConstants.h"

#include <exception>
#include <string_view>

namespace varo::binary {
namespace {

namespace texts = log_texts::block_call;

}  // namespace

void callBlock(const std::function<void()>& call) noexcept {
  try {
    call();
  } catch (const std::exception& exception) {
    logger().logError(texts::kBlockThrew, exception.what());
  } catch (...) {
    logger().logError(texts::kBlockThrew, kUnknownException);
  }
}

}  // namespace varo::binary
