#pragma once

#include "varo/c/failure.h"

#include <new>
#include <utility>

namespace varo::capi {

/// The code that `call` gives, or that of what it throws: nothing is thrown through C.
template <typename Call>
varo_code guarded(Call&& call) noexcept {
  try {
    return std::forward<Call>(call)();
  } catch (const std::bad_alloc&) {
    return VARO_NO_MEMORY;
  } catch (...) {  // the facade's catch-all
    return VARO_OTHER;
  }
}

}  // namespace varo::capi
