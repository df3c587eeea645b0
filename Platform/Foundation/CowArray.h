#pragma once

#include <algorithm>
#include <atomic>
#include <cstddef>
#include <memory>
#include <new>
#include <type_traits>
#include <utility>

namespace varo::platform {

/// Shared ownership of `T`s in a row and a `Head` beside them, in one piece of memory. What is
/// shared is copied before the first change, as `CowPtr` does it; the same holds for threads.
///
/// Both types may be incomplete where only the array itself is declared.
template <typename T, typename Head>
class CowArray {
 public:
  CowArray() noexcept = default;
  CowArray(const CowArray& other) noexcept : node_(other.node_) {
    if (node_ != nullptr) node_->owners.fetch_add(1, std::memory_order_relaxed);
  }
  CowArray(CowArray&& other) noexcept : node_(std::exchange(other.node_, nullptr)) {}
  CowArray& operator=(CowArray other) noexcept {
    std::swap(node_, other.node_);
    return *this;
  }
  ~CowArray() {
    if (node_ == nullptr || node_->owners.fetch_sub(1, std::memory_order_acq_rel) != 1) return;
    std::destroy_n(node_->elements(), node_->size);
    node_->~Node();
    ::operator delete(node_);
  }

  [[nodiscard]] std::size_t size() const noexcept { return node_ != nullptr ? node_->size : 0; }
  [[nodiscard]] const T* data() const noexcept {
    return node_ != nullptr ? node_->elements() : nullptr;
  }
  /// Null before the first change.
  [[nodiscard]] const Head* head() const noexcept {
    return node_ != nullptr ? &node_->head : nullptr;
  }
  /// Whether both refer to the same memory (then they are equal without a comparison).
  [[nodiscard]] bool sharesWith(const CowArray& other) const noexcept {
    return node_ == other.node_;
  }

  /// Makes this the only owner, with room for `room` elements. Throws with nothing changed. What
  /// changes an array, below, is allowed after this alone.
  void own(std::size_t room) {
    const bool isAlone = node_ != nullptr && node_->owners.load(std::memory_order_acquire) == 1;
    if (isAlone && room <= node_->room) return;
    CowArray owned(newNode(std::max(room, size())));
    if (isAlone) {
      static_assert(std::is_nothrow_move_constructible_v<T>);
      owned.node_->head = std::move(node_->head);
      for (T& element : *node_) owned.emplace(std::move(element));
    } else if (node_ != nullptr) {
      owned.node_->head = std::as_const(node_->head);
      for (const T& element : *node_) owned.emplace(element);
    }
    std::swap(node_, owned.node_);
  }
  /// The same with room for one more element, and for others soon.
  void ownWithRoomForNext() {
    const std::size_t needed = size() + 1;
    const bool fits = node_ != nullptr && needed <= node_->room;
    own(fits ? needed : std::max(2 * size(), kFewest));
  }

  [[nodiscard]] Head& ownedHead() noexcept { return node_->head; }
  [[nodiscard]] T& owned(std::size_t index) noexcept { return node_->elements()[index]; }
  /// There must be room. The reference is valid until the next change.
  template <typename... Arguments>
  T& emplace(Arguments&&... arguments) {
    T* const added =
        std::construct_at(node_->elements() + node_->size, std::forward<Arguments>(arguments)...);
    ++node_->size;
    return *added;
  }
  void erase(std::size_t index) noexcept {
    T* const erased = node_->elements() + index;
    std::move(erased + 1, node_->end(), erased);
    std::destroy_at(node_->elements() + --node_->size);
  }

 private:
  static constexpr std::size_t kFewest = 4;

  /// The elements follow it.
  struct Node {
    explicit Node(std::size_t elements) : room(elements) {}
    [[nodiscard]] T* elements() noexcept {
      static_assert(alignof(T) <= alignof(Node) && alignof(Node) <= alignof(std::max_align_t));
      return reinterpret_cast<T*>(this + 1);
    }
    [[nodiscard]] T* begin() noexcept { return elements(); }
    [[nodiscard]] T* end() noexcept { return elements() + size; }

    std::atomic<std::size_t> owners{1};
    std::size_t size = 0;
    const std::size_t room;
    Head head{};
  };

  explicit CowArray(Node* node) noexcept : node_(node) {}

  static Node* newNode(std::size_t room) {
    if (room > (static_cast<std::size_t>(-1) - sizeof(Node)) / sizeof(T)) {
      throw std::bad_array_new_length();
    }
    static_assert(std::is_nothrow_default_constructible_v<Head>);
    return std::construct_at(static_cast<Node*>(::operator new(sizeof(Node) + room * sizeof(T))),
                             room);
  }

  Node* node_ = nullptr;
};

}  // namespace varo::platform
