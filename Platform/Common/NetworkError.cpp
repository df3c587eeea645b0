#include "Platform/Common/NetworkError.h"

#include <boost/core/demangle.hpp>
#include <fmt/format.h>

#include <array>
#include <cstdlib>
#include <dlfcn.h>
#include <exception>
#include <execinfo.h>
#include <string_view>

namespace varo::platform {
namespace {

/// Deeper frames say nothing more about where an error arose.
constexpr int kMaxFrames = 32;

/// "symbol + offset (object)", or what of it is known.
std::string frameSymbol(void* address) {
  Dl_info info{};
  if (::dladdr(address, &info) == 0 || info.dli_fname == nullptr) {
    return fmt::format("{}", fmt::ptr(address));
  }
  std::string_view object = info.dli_fname;
  object.remove_prefix(object.rfind('/') + 1);  // npos + 1 is 0
  if (info.dli_sname == nullptr) {
    const auto offset =
        static_cast<const char*>(address) - static_cast<const char*>(info.dli_fbase);
    return fmt::format("{} + {:#x}", object, offset);
  }
  const auto offset = static_cast<const char*>(address) - static_cast<const char*>(info.dli_saddr);
  return fmt::format("{} + {:#x} ({})", boost::core::demangle(info.dli_sname), offset, object);
}

}  // namespace

__attribute__((noinline)) std::vector<std::string> currentCallStack() noexcept {
  std::vector<std::string> symbols;
  try {
    std::array<void*, kMaxFrames + 1> addresses{};
    const int count = ::backtrace(addresses.data(), static_cast<int>(addresses.size()));
    symbols.reserve(static_cast<std::size_t>(count));
    for (int i = 1; i < count; ++i) {  // the first is this function
      symbols.push_back(frameSymbol(addresses[static_cast<std::size_t>(i)]));
    }
  } catch (const std::exception&) {
    // Without memory the error at hand matters more than where it arose; keep what there is.
  }
  return symbols;
}

}  // namespace varo::platform
