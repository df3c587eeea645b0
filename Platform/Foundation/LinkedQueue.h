#pragma once

#include <cstddef>
#include <memory>
#include <utility>

namespace varo::platform {

/// First in, first out, of items that carry the link themselves (`std::shared_ptr<T> next`): to
/// queue one needs no memory and cannot fail. An item is in one queue at a time, once.
/// Not thread-safe.
template <typename T>
class LinkedQueue {
 public:
  LinkedQueue() noexcept = default;
  LinkedQueue(const LinkedQueue&) = delete;
  LinkedQueue& operator=(const LinkedQueue&) = delete;
  /// One by one: a chain that destroyed itself would use a stack frame an item.
  ~LinkedQueue() {
    while (pop() != nullptr) continue;
  }

  [[nodiscard]] bool empty() const noexcept { return first_ == nullptr; }
  [[nodiscard]] std::size_t size() const noexcept { return size_; }
  [[nodiscard]] T* front() const noexcept { return first_.get(); }

  void push(std::shared_ptr<T> item) noexcept {
    T* const pushed = item.get();
    (last_ == nullptr ? first_ : last_->next) = std::move(item);
    last_ = pushed;
    ++size_;
  }

  /// The first item; null when there is none.
  std::shared_ptr<T> pop() noexcept {
    std::shared_ptr<T> item = std::move(first_);
    if (item == nullptr) return item;
    first_ = std::move(item->next);
    if (first_ == nullptr) last_ = nullptr;
    --size_;
    return item;
  }

 private:
  std::shared_ptr<T> first_;
  T* last_ = nullptr;
  std::size_t size_ = 0;
};

}  // namespace varo::platform
