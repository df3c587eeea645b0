#include "Platform/Foundation/Dictionary.h"

#include "Platform/Foundation/Value.h"

#include <algorithm>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <unordered_map>
#include <vector>

namespace varo::platform {
namespace {

/// Up to this many entries a look-up compares keys one after another, which beats hashing there.
constexpr std::size_t kLinearSearchLimit = 24;

struct TextHash {
  using is_transparent = void;
  std::size_t operator()(std::string_view text) const noexcept {
    return std::hash<std::string_view>{}(text);
  }
};

/// Whether `entries`, which are few, can become a dictionary as they are.
bool areDistinctAndPresent(const std::vector<DictionaryEntry>& entries) noexcept {
  for (std::size_t i = 0; i < entries.size(); ++i) {
    if (entries[i].value.isMissing()) return false;
    for (std::size_t j = 0; j < i; ++j) {
      if (entries[j].key == entries[i].key) return false;
    }
  }
  return true;
}

}  // namespace

/// Entries in order of insertion, and beyond `kLinearSearchLimit` an index of them.
struct DictionaryStorage {
  using Positions = std::unordered_map<std::string, std::size_t, TextHash, std::equal_to<>>;

  std::vector<DictionaryEntry> entries;
  /// Key to position; null as long as the entries have always been few. Apart, since most
  /// dictionaries need none.
  std::unique_ptr<Positions> positions;

  DictionaryStorage() = default;
  DictionaryStorage(const DictionaryStorage& other)
      : entries(other.entries),
        positions(other.positions != nullptr ? std::make_unique<Positions>(*other.positions)
                                             : nullptr) {}
  DictionaryStorage& operator=(const DictionaryStorage&) = delete;
  ~DictionaryStorage() = default;

  [[nodiscard]] std::optional<std::size_t> positionOf(std::string_view key) const noexcept {
    if (positions == nullptr) {
      for (std::size_t i = 0; i < entries.size(); ++i) {
        if (entries[i].key == key) return i;
      }
      return std::nullopt;
    }
    const auto found = positions->find(key);
    return found != positions->end() ? std::optional(found->second) : std::nullopt;
  }

  void append(std::string key, Value value) {
    entries.push_back({std::move(key), std::move(value)});
    if (positions != nullptr) {
      positions->emplace(entries.back().key, entries.size() - 1);
    } else if (entries.size() > kLinearSearchLimit) {
      buildPositions();
    }
  }

  void erase(std::size_t position) {
    if (positions != nullptr) {
      positions->erase(entries[position].key);
      for (auto& entry : *positions) entry.second -= entry.second > position ? 1U : 0U;
    }
    entries.erase(entries.begin() + static_cast<std::ptrdiff_t>(position));
  }

  void buildPositions() {
    positions = std::make_unique<Positions>();
    for (std::size_t i = 0; i < entries.size(); ++i) positions->emplace(entries[i].key, i);
  }
};

Dictionary::Dictionary() noexcept = default;
Dictionary::Dictionary(std::initializer_list<DictionaryEntry> entries) {
  for (const DictionaryEntry& entry : entries) set(entry.key, entry.value);
}
Dictionary::Dictionary(std::vector<DictionaryEntry> entries) {
  if (entries.empty()) return;
  if (entries.size() <= kLinearSearchLimit && areDistinctAndPresent(entries)) {
    storage_.write().entries = std::move(entries);
  } else {
    for (DictionaryEntry& entry : entries) set(std::move(entry.key), std::move(entry.value));
  }
}
Dictionary::Dictionary(const Dictionary&) noexcept = default;
Dictionary::Dictionary(Dictionary&&) noexcept = default;
Dictionary& Dictionary::operator=(const Dictionary&) noexcept = default;
Dictionary& Dictionary::operator=(Dictionary&&) noexcept = default;
Dictionary::~Dictionary() = default;

std::size_t Dictionary::size() const noexcept {
  const auto* storage = storage_.read();
  return storage != nullptr ? storage->entries.size() : 0;
}

const Value* Dictionary::find(std::string_view key) const noexcept {
  const auto* storage = storage_.read();
  if (storage == nullptr) return nullptr;
  const auto position = storage->positionOf(key);
  return position ? &storage->entries[*position].value : nullptr;
}

const Value& Dictionary::operator[](std::string_view key) const noexcept {
  static const Value& kMissing = *new Value();  // outlives threads that are still running at exit
  const Value* value = find(key);
  return value != nullptr ? *value : kMissing;
}

void Dictionary::set(std::string key, Value value) {
  if (value.isMissing()) {
    remove(key);
    return;
  }
  DictionaryStorage& storage = storage_.write();
  if (const auto position = storage.positionOf(key)) {
    storage.entries[*position].value = std::move(value);
  } else {
    storage.append(std::move(key), std::move(value));
  }
}

bool Dictionary::remove(std::string_view key) {
  if (!contains(key)) return false;
  DictionaryStorage& storage = storage_.write();
  storage.erase(*storage.positionOf(key));
  return true;
}

void Dictionary::addEntries(const Dictionary& other) {
  if (empty()) {
    *this = other;
    return;
  }
  const Dictionary source = other;  // `other` may be this dictionary, which is about to change
  for (const DictionaryEntry& entry : source) set(entry.key, entry.value);
}

Dictionary::const_iterator Dictionary::begin() const noexcept {
  const auto* storage = storage_.read();
  return storage != nullptr ? storage->entries.data() : nullptr;
}

Dictionary::const_iterator Dictionary::end() const noexcept { return begin() + size(); }

bool operator==(const Dictionary& left, const Dictionary& right) {
  if (left.storage_.sharesWith(right.storage_)) return true;
  if (left.size() != right.size()) return false;
  return std::all_of(left.begin(), left.end(), [&right](const DictionaryEntry& entry) {
    const Value* other = right.find(entry.key);
    return other != nullptr && *other == entry.value;
  });
}

}  // namespace varo::platform
