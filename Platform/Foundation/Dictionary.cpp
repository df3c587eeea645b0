#include "Platform/Foundation/Dictionary.h"

#include "Platform/Foundation/KeyTable.h"
#include "Platform/Foundation/NeverDestroyed.h"
#include "Platform/Foundation/Value.h"

#include <algorithm>
#include <utility>

namespace varo::platform {
namespace {

/// As `set` does it, one after the other, in a dictionary whose values have room for all of them.
/// What is constant is copied, other entries are moved.
template <typename Entry>
void setAll(Dictionary& dictionary, CowArray<Value, KeyTable>& values, Entry* first, Entry* last) {
  for (Entry* entry = first; entry != last; ++entry) {
    KeyTable& keys = values.ownedHead();
    if (entry->value.isMissing() || keys.find(entry->key)) {
      dictionary.set(std::move(entry->key), std::move(entry->value));
    } else {
      keys.append(std::move(entry->key));
      values.emplace(std::move(entry->value));
    }
  }
}

}  // namespace

Dictionary::Dictionary() noexcept = default;
Dictionary::Dictionary(std::initializer_list<DictionaryEntry> entries) {
  reserve(entries.size());
  setAll(*this, values_, entries.begin(), entries.end());
}
Dictionary::Dictionary(std::vector<DictionaryEntry> entries) {
  reserve(entries.size());
  setAll(*this, values_, entries.data(), entries.data() + entries.size());
}
Dictionary::Dictionary(const Dictionary&) noexcept = default;
Dictionary::Dictionary(Dictionary&&) noexcept = default;
Dictionary& Dictionary::operator=(const Dictionary&) noexcept = default;
Dictionary& Dictionary::operator=(Dictionary&&) noexcept = default;
Dictionary::~Dictionary() = default;

std::size_t Dictionary::size() const noexcept { return values_.size(); }

std::optional<std::size_t> Dictionary::positionOf(std::string_view key) const noexcept {
  const KeyTable* keys = values_.head();
  return keys != nullptr ? keys->find(key) : std::nullopt;
}

void Dictionary::reserve(std::size_t count) {
  if (count == 0) return;
  values_.own(count);
  values_.ownedHead().reserve(count);
}

const Value* Dictionary::find(std::string_view key) const noexcept {
  const auto position = positionOf(key);
  return position ? values_.data() + *position : nullptr;
}

const Value& Dictionary::operator[](std::string_view key) const noexcept {
  static NeverDestroyed<Value> missing;
  const Value* value = find(key);
  return value != nullptr ? *value : missing.get();
}

void Dictionary::set(std::string key, Value value) {
  if (value.isMissing()) {
    remove(key);
  } else if (const auto position = positionOf(key)) {
    values_.own(size());
    values_.owned(*position) = std::move(value);
  } else {
    values_.ownWithRoomForNext();
    values_.ownedHead().append(std::move(key));
    values_.emplace(std::move(value));
  }
}

bool Dictionary::remove(std::string_view key) {
  const auto position = positionOf(key);
  if (!position) return false;
  values_.own(size());
  values_.ownedHead().erase(*position);
  values_.erase(*position);
  return true;
}

void Dictionary::addEntries(const Dictionary& other) {
  if (empty()) {
    *this = other;
    return;
  }
  // `other` may be this dictionary or stand in it, and this is about to change.
  const Dictionary source = other;  // NOLINT(performance-unnecessary-copy-initialization)
  for (const auto& [key, value] : source) set(key, value);
}

Dictionary::const_iterator Dictionary::begin() const noexcept {
  return {empty() ? nullptr : values_.head()->data(), values_.data(), 0};
}

Dictionary::const_iterator Dictionary::end() const noexcept { return begin() + std::ssize(*this); }

bool operator==(const Dictionary& left, const Dictionary& right) {
  if (left.values_.sharesWith(right.values_)) return true;
  if (left.size() != right.size()) return false;
  return std::all_of(left.begin(), left.end(), [&right](const Dictionary::Entry& entry) {
    const Value* other = right.find(entry.key);
    return other != nullptr && *other == entry.value;
  });
}

}  // namespace varo::platform
