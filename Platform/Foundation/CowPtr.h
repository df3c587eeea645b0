#pragma once

#include <atomic>
#include <cstddef>
#include <utility>

namespace varo::platform {

/// Shared ownership of a `T` that is copied before the first write while others share it.
///
/// Copying a `CowPtr` costs an atomic increment. `std::shared_ptr` would not do here: its
/// `use_count` is a relaxed load, so a writer that finds itself alone would not be ordered after
/// the last reads of an owner that has just let go.
///
/// Distinct instances may be used from different threads at once, also when they share their value;
/// one instance is not thread-safe. A default-constructed one owns nothing until `write`.
template <typename T>
class CowPtr {
 public:
  CowPtr() noexcept = default;
  CowPtr(const CowPtr& other) noexcept : node_(other.node_) {
    if (node_ != nullptr) node_->owners.fetch_add(1, std::memory_order_relaxed);
  }
  CowPtr(CowPtr&& other) noexcept : node_(std::exchange(other.node_, nullptr)) {}
  CowPtr& operator=(CowPtr other) noexcept {
    std::swap(node_, other.node_);
    return *this;
  }
  ~CowPtr() {
    if (node_ != nullptr && node_->owners.fetch_sub(1, std::memory_order_acq_rel) == 1)
      delete node_;
  }

  /// The value, or null when there is none yet.
  [[nodiscard]] const T* read() const noexcept {
    return node_ != nullptr ? &node_->value : nullptr;
  }

  /// The value for writing, unshared: made when there is none, copied when others share it.
  [[nodiscard]] T& write() {
    if (node_ == nullptr) {
      node_ = new Node{};
    } else if (node_->owners.load(std::memory_order_acquire) != 1) {
      *this = CowPtr(new Node(node_->value));
    }
    return node_->value;
  }

  /// Whether both refer to the same stored value (then they are equal without a comparison).
  [[nodiscard]] bool sharesWith(const CowPtr& other) const noexcept { return node_ == other.node_; }

 private:
  struct Node {
    Node() = default;
    explicit Node(const T& source) : value(source) {}
    std::atomic<std::size_t> owners{1};
    T value;
  };

  explicit CowPtr(Node* node) noexcept : node_(node) {}

  Node* node_ = nullptr;
};

}  // namespace varo::platform
