#pragma once

#include "varo/transfer.h"

#include <coroutine>
#include <exception>
#include <future>

namespace varo::test {

/// A coroutine that nobody waits for.
struct Job {
  struct promise_type {
    Job get_return_object() { return {}; }
    std::suspend_never initial_suspend() noexcept { return {}; }
    std::suspend_never final_suspend() noexcept { return {}; }
    void return_void() {}
    void unhandled_exception() { std::terminate(); }
  };
};

/// Sets `hasOutcome` when the transfer has one: while its handle is destroyed, before that waits
/// for what is being called.
template <typename T>
void notify(const Transfer<T>& transfer, std::promise<void>& hasOutcome) {
  // A lambda, since clang 14 has no code for other coroutines under -fsanitize=function.
  [](const Transfer<T>& awaited, std::promise<void>& told) -> Job {
    static_cast<void>(co_await awaited);
    told.set_value();
  }(transfer, hasOutcome);
}

}  // namespace varo::test
