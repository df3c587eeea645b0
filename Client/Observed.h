#pragma once

#include "Platform/Network/RequestObserver.h"

#include <memory>
#include <utility>

namespace varo::detail {

/// What sends requests at the end of an operation too, when none of its runs is under way.
class Observed {
 public:
  /// Who is told of those; null for nobody. Before the first run.
  void observedBy(std::shared_ptr<platform::RequestObserver> observer) {
    observer_ = std::move(observer);
  }

 protected:
  [[nodiscard]] const std::shared_ptr<platform::RequestObserver>& observer() const noexcept {
    return observer_;
  }

 private:
  std::shared_ptr<platform::RequestObserver> observer_;
};

}  // namespace varo::detail
