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
Job notify(const Transfer<T>& transfer, std::promise<void>& hasOutcome) {
  static_cast<void>(co_await transfer);
  hasOutcome.set_value();
}

}  // namespace varo::test
