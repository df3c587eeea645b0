#pragma once

#include "Platform/Foundation/CowArray.h"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace varo::platform {

/// The keys of a dictionary in their order, each once. Copies share the keys until one of them is
/// changed: so records that are alike have theirs once.
///
/// Not thread-safe as one instance; copies may be used on different threads.
class KeyTable {
 public:
  [[nodiscard]] std::size_t size() const noexcept { return keys_.size(); }
  [[nodiscard]] const std::string* data() const noexcept { return keys_.data(); }
  /// Linear in a small table, constant on average in a large one, whoever chooses the keys.
  [[nodiscard]] std::optional<std::size_t> find(std::string_view key) const noexcept {
    const std::string* const keys = data();
    const std::size_t count = size();
    if (count > kLinearSearchLimit && keys_.head()->areUsed()) return keys_.head()->find(keys, key);
    for (std::size_t i = 0; i < count; ++i) {
      if (keys[i] == key) return i;
    }
    return std::nullopt;
  }
  /// A table of the first `count` keys. It has room for as many as there are here, if these are
  /// few.
  [[nodiscard]] KeyTable firstKeys(std::size_t count) const;

  /// Each of these throws with nothing changed.
  void reserve(std::size_t count) { keys_.own(count); }
  /// There must be no such key.
  template <typename Key>
  void append(Key&& key) {
    keys_.ownWithRoomForNext();
    // Before the key is there: one without its position would not be found.
    if (size() >= kLinearSearchLimit) keys_.ownedHead().reserve(data(), size(), size() + 1);
    const std::string& added = keys_.emplace(std::forward<Key>(key));
    if (keys_.ownedHead().areUsed()) keys_.ownedHead().add(added, size() - 1);
  }
  void erase(std::size_t position);

 private:
  /// Up to this many keys a look-up compares one after another, which beats hashing there.
  static constexpr std::size_t kLinearSearchLimit = 24;

  /// Where the keys of a large table stand: a hash table of positions with linear probing, which
  /// holds no keys of its own. At most three quarters of its slots are taken.
  class Positions {
   public:
    /// Whether there are any: not as long as the keys have always been few.
    [[nodiscard]] bool areUsed() const noexcept { return !slots_.empty(); }
    void reserve(const std::string* keys, std::size_t count, std::size_t newCount);
    /// There must be room.
    void add(std::string_view key, std::size_t position) noexcept;
    /// After keys have moved.
    void rebuild(const std::string* keys, std::size_t count) noexcept;
    [[nodiscard]] std::optional<std::size_t> find(const std::string* keys,
                                                  std::string_view key) const noexcept;

   private:
    struct Slot {
      std::uint32_t next = 0;  // the number after the position; 0: the slot is free
      std::uint32_t hash = 0;  // spares most comparisons with other keys
    };
    std::vector<Slot> slots_;  // a power of two of them, or none
  };

  CowArray<std::string, Positions> keys_;
};

}  // namespace varo::platform
