#pragma once

#include "Platform/Foundation/CowPtr.h"

#include <cstddef>
#include <initializer_list>
#include <string>
#include <string_view>
#include <vector>

namespace varo::platform {

class Value;
struct DictionaryEntry;
struct DictionaryStorage;

/// A map from text keys to values that enumerates its entries in the order of insertion.
///
/// Setting an existing key keeps its place. A dictionary never holds a missing value: setting one
/// removes the key. Copies share their storage until one of them is changed. Looking up or setting
/// a key is linear in small dictionaries and constant on average in large ones, whoever chooses the
/// keys; removing one is linear. A change that there is no memory for throws and changes nothing.
///
/// Not thread-safe as one instance; copies may be used on different threads.
class Dictionary {
 public:
  using const_iterator = const DictionaryEntry*;

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
  CowPtr<DictionaryStorage> storage_;
};

}  // namespace varo::platform
