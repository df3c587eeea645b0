#pragma once

#include "Client/C/CFailure.h"
#include "Client/C/GivenStruct.h"
#include "varo/outcome.h"

#include <memory>
#include <utility>

namespace varo::capi {

/// Gives the caller the handle that `make` makes, an `Outcome<std::unique_ptr<Handle>>`, or why
/// there is none. `argument` is the name of `handle`.
template <typename Handle, typename Make>
varo_code created(Handle** handle, const char* argument, varo_failure** failure,
                  Make&& make) noexcept {
  if (handle != nullptr) *handle = nullptr;
  if (failure != nullptr) *failure = nullptr;
  try {
    if (handle == nullptr) return give(missing(argument), failure);
    Outcome<std::unique_ptr<Handle>> made = std::forward<Make>(make)();
    if (!made) return give(made.error(), failure);
    *handle = std::move(*made).release();
    return VARO_OK;
  } catch (...) {  // the facade's catch-all: nothing below throws for another reason
    return giveNoMemory(failure);
  }
}

}  // namespace varo::capi
