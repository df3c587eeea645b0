#include "Platform/Common/NetworkError.h"

#include <boost/core/demangle.hpp>
#include <boost/stacktrace/stacktrace.hpp>
#include <fmt/format.h>

#include <cstddef>
#include <dlfcn.h>
#include <exception>
#include <string_view>

namespace varo::platform {
namespace {

/// Deeper frames say nothing more about where an error arose.
constexpr std::size_t kMaxFrames = 32;

/// "symbol + offset (object)", or what of it is known.
std::string frameSymbol(const void* address) {
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
    const boost::stacktrace::stacktrace frames(1, kMaxFrames);  // the first is this function
    symbols.reserve(frames.size());
    for (const auto& frame : frames) symbols.push_back(frameSymbol(frame.address()));
  } catch (const std::exception&) {
    // Without memory the error at hand matters more than where it arose; keep what there is.
  }
  return symbols;
}

}  // namespace varo::platform
