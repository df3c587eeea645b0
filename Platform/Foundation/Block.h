#pragma once

#include "Platform/Foundation/Object.h"

#include <functional>
#include <string>
#include <utility>

namespace varo::platform {

template <typename Signature>
class Block;

/// A caller's function as something that travels in a `Value`. Never empty where the caller's
/// function is not. Thread-safe as far as the function is.
template <typename... Args>
class Block<void(Args...)> final : public Object {
 public:
  using Function = std::function<void(Args...)>;

  explicit Block(Function function) : function_(std::move(function)) {}

  [[nodiscard]] const Function& function() const noexcept { return function_; }
  [[nodiscard]] std::string description() const override { return "Block"; }

 private:
  const Function function_;
};

}  // namespace varo::platform
