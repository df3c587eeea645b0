#pragma once

#include "Platform/Foundation/CowArray.h"

#include <compare>
#include <cstddef>
#include <initializer_list>
#include <iterator>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace varo::platform {

class KeyTable;
class Value;
struct DictionaryEntry;

/// A map from text keys to values that enumerates its entries in the order of insertion.
///
/// Setting an existing key keeps its place. A dictionary never holds a missing value: setting one
/// removes the key. Copies share their storage until one of them is changed; dictionaries that were
/// read one after the other, from JSON or a database, share equal keys. Looking up or setting a key
/// is linear in small dictionaries and constant on average in large ones, whoever chooses the keys;
/// removing one is linear. A change that there is no memory for throws and changes nothing.
///
/// Not thread-safe as one instance; copies may be used on different threads.
class Dictionary {
 public:
  /// An entry where it stands, as iteration shows it: for `const auto& entry`. A copy of it refers
  /// to the same entry. It becomes a `DictionaryEntry`, which has key and value of its own, where
  /// one is named. Valid as long as the iterator.
  struct Entry {
    const std::string& key;
    const Value& value;
    operator DictionaryEntry() const;  // NOLINT(google-explicit-constructor)
  };
  class const_iterator;

  Dictionary() noexcept;
  /// Later entries win over earlier ones with the same key.
  Dictionary(std::initializer_list<DictionaryEntry> entries);
  /// Takes over `entries`, with the same rule.
  explicit Dictionary(std::vector<DictionaryEntry> entries);
  Dictionary(const Dictionary&) noexcept;
  Dictionary(Dictionary&&) noexcept;
  Dictionary& operator=(const Dictionary&) noexcept;
  Dictionary& operator=(Dictionary&&) noexcept;
  ~Dictionary();

  [[nodiscard]] std::size_t size() const noexcept;
  [[nodiscard]] bool empty() const noexcept { return size() == 0; }
  [[nodiscard]] bool contains(std::string_view key) const noexcept { return find(key) != nullptr; }

  /// The value under `key`, or null. Valid until this dictionary is changed or destroyed.
  [[nodiscard]] const Value* find(std::string_view key) const noexcept;

  /// The value under `key`, or the missing value.
  [[nodiscard]] const Value& operator[](std::string_view key) const noexcept;

  void set(std::string key, Value value);
  /// Whether there was such a key.
  bool remove(std::string_view key);
  /// Sets every entry of `other`, in its order.
  void addEntries(const Dictionary& other);

  /// Iterators stay valid until this dictionary is changed or destroyed.
  [[nodiscard]] const_iterator begin() const noexcept;
  [[nodiscard]] const_iterator end() const noexcept;

  /// Same keys with equal values, in any order.
  friend bool operator==(const Dictionary& left, const Dictionary& right);

 private:
  friend class DictionaryBuilder;

  [[nodiscard]] std::optional<std::size_t> positionOf(std::string_view key) const noexcept;
  void reserve(std::size_t count);

  CowArray<Value, KeyTable> values_;  // in the order of their keys
};

/// Random access.
class Dictionary::const_iterator {
 public:
  using iterator_category = std::random_access_iterator_tag;
  using value_type = Entry;
  using reference = Entry;
  using difference_type = std::ptrdiff_t;
  struct pointer {  // NOLINT(readability-identifier-naming): the standard's name
    Entry entry;
    const Entry* operator->() const noexcept { return &entry; }
  };

  const_iterator() noexcept = default;

  Entry operator*() const noexcept { return (*this)[0]; }
  pointer operator->() const noexcept { return {**this}; }
  Entry operator[](difference_type distance) const noexcept;
  const_iterator& operator+=(difference_type distance) noexcept {
    position_ += distance;
    return *this;
  }
  const_iterator& operator-=(difference_type distance) noexcept { return *this += -distance; }
  const_iterator& operator++() noexcept { return *this += 1; }
  const_iterator& operator--() noexcept { return *this -= 1; }
  const_iterator operator++(int) noexcept { return {keys_, values_, position_++}; }
  const_iterator operator--(int) noexcept { return {keys_, values_, position_--}; }
  friend const_iterator operator+(const_iterator it, difference_type distance) noexcept {
    return it += distance;
  }
  friend const_iterator operator+(difference_type distance, const_iterator it) noexcept {
    return it += distance;
  }
  friend const_iterator operator-(const_iterator it, difference_type distance) noexcept {
    return it -= distance;
  }
  friend difference_type operator-(const_iterator left, const_iterator right) noexcept {
    return left.position_ - right.position_;
  }
  friend bool operator==(const_iterator left, const_iterator right) noexcept {
    return left.position_ == right.position_;
  }
  friend auto operator<=>(const_iterator left, const_iterator right) noexcept {
    return left.position_ <=> right.position_;
  }

 private:
  friend class Dictionary;
  const_iterator(const std::string* keys, const Value* values, difference_type position) noexcept
      : keys_(keys), values_(values), position_(position) {}

  const std::string* keys_ = nullptr;
  const Value* values_ = nullptr;
  difference_type position_ = 0;
};

}  // namespace varo::platform
