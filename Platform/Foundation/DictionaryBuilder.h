#pragma once

#include "Platform/Foundation/Dictionary.h"
#include "Platform/Foundation/KeyTable.h"
#include "Platform/Foundation/Value.h"

#include <algorithm>
#include <cstddef>
#include <string_view>
#include <utility>

namespace varo::platform {

/// Makes dictionaries one after another, out of keys that are each followed by their value. One
/// with the keys of the one before, in the same order, shares them: records that come in a row are
/// mostly alike. Of two entries with the same key the later one wins, as in `Dictionary::set`.
/// Not thread-safe.
class DictionaryBuilder {
 public:
  DictionaryBuilder() = default;
  // No copies: what is not a dictionary yet is changed in place, and must not be shared.
  DictionaryBuilder(DictionaryBuilder&&) noexcept = default;
  DictionaryBuilder& operator=(DictionaryBuilder&&) noexcept = default;

  void key(std::string_view key) {
    const std::size_t next = values_.size();
    const bool isExpected = follows_ && next < keys_.size() && keys_.data()[next] == key;
    target_ = isExpected ? next : placeOfOther(key);
  }

  /// What becomes the value of the last key; not the missing value.
  template <typename T>
  void value(T&& value) {
    if (target_ < values_.size()) {
      values_.owned(target_) = Value(std::forward<T>(value));
      return;
    }
    // As many as the one before has, so that this one needs one allocation.
    if (target_ == 0 && follows_) values_.own(std::min(keys_.size(), kMostReserved));
    values_.ownWithRoomForNext();
    values_.emplace(std::forward<T>(value));
  }

  /// The dictionary of the entries so far, without which the next one begins.
  [[nodiscard]] Dictionary take();

 private:
  /// More is not reserved for a dictionary on the word of the one before.
  static constexpr std::size_t kMostReserved = 64;

  /// Of a key that is not the next one of the dictionary before.
  std::size_t placeOfOther(std::string_view key);

  /// Those of the dictionary before, until this one has a key that is another: then its own.
  KeyTable keys_;
  bool follows_ = true;  // whether they are those of the dictionary before
  CowArray<Value, KeyTable> values_;
  std::size_t target_ = 0;  // where the value of the last key belongs
};

}  // namespace varo::platform
