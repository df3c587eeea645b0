#include "Platform/Foundation/Dictionary.h"

#include "Platform/Foundation/KeyHash.h"
#include "Platform/Foundation/NeverDestroyed.h"
#include "Platform/Foundation/Value.h"

#include <algorithm>
#include <cstdint>
#include <limits>
#include <memory>
#include <optional>
#include <stdexcept>
#include <vector>

namespace varo::platform {
namespace {

/// Up to this many entries a look-up compares keys one after another, which beats hashing there.
constexpr std::size_t kLinearSearchLimit = 24;

using Entries = std::vector<DictionaryEntry>;

/// Where the entries of a large dictionary stand: a hash table of positions with linear probing,
/// which holds no keys of its own. At most three quarters of its slots are taken.
class PositionTable {
 public:
  /// Makes room for `count` entries; throws with nothing changed.
  void reserve(const Entries& entries, std::size_t count) {
    if (count > std::numeric_limits<std::uint32_t>::max() / 2) {
      throw std::length_error("A dictionary has too many entries");
    }
    std::size_t size = std::max<std::size_t>(slots_.size(), kLeastSlots);
    while (size / 4 * 3 < count) size *= 2;
    if (size == slots_.size()) return;
    slots_ = std::vector<Slot>(size);
    addAll(entries);
  }

  /// There must be room.
  void add(const Entries& entries, std::size_t position) noexcept {
    const std::uint64_t hash = keyHash(entries[position].key);
    std::size_t i = hash & (slots_.size() - 1);
    while (slots_[i].next != 0) i = (i + 1) & (slots_.size() - 1);
    slots_[i] = {static_cast<std::uint32_t>(position + 1), upperHalf(hash)};
  }

  /// After entries have moved.
  void rebuild(const Entries& entries) noexcept {
    std::fill(slots_.begin(), slots_.end(), Slot{});
    addAll(entries);
  }

  [[nodiscard]] std::optional<std::size_t> find(const Entries& entries,
                                                std::string_view key) const noexcept {
    const std::uint64_t hash = keyHash(key);
    for (std::size_t i = hash & (slots_.size() - 1); slots_[i].next != 0;
         i = (i + 1) & (slots_.size() - 1)) {
      const std::size_t position = slots_[i].next - 1;
      if (slots_[i].hash == upperHalf(hash) && entries[position].key == key) return position;
    }
    return std::nullopt;
  }

 private:
  static constexpr std::size_t kLeastSlots = 64;
  struct Slot {
    std::uint32_t next = 0;  // the number after the position; 0: the slot is free
    std::uint32_t hash = 0;  // spares most comparisons with other keys
  };

  static std::uint32_t upperHalf(std::uint64_t hash) noexcept {
    return static_cast<std::uint32_t>(hash >> 32U);
  }
  void addAll(const Entries& entries) noexcept {
    for (std::size_t i = 0; i < entries.size(); ++i) add(entries, i);
  }

  std::vector<Slot> slots_;  // a power of two of them
};

/// Whether `entries`, which are few, can become a dictionary as they are.
bool areDistinctAndPresent(const Entries& entries) noexcept {
  for (std::size_t i = 0; i < entries.size(); ++i) {
    if (entries[i].value.isMissing()) return false;
    for (std::size_t j = 0; j < i; ++j) {
      if (entries[j].key == entries[i].key) return false;
    }
  }
  return true;
}

}  // namespace

/// Entries in order of insertion, and beyond `kLinearSearchLimit` a table of their positions.
struct DictionaryStorage {
  Entries entries;
  /// Null as long as the entries have always been few. Apart, since most dictionaries need none.
  std::unique_ptr<PositionTable> positions;

  DictionaryStorage() = default;
  DictionaryStorage(const DictionaryStorage& other)
      : entries(other.entries),
        positions(other.positions != nullptr ? std::make_unique<PositionTable>(*other.positions)
                                             : nullptr) {}
  DictionaryStorage& operator=(const DictionaryStorage&) = delete;
  ~DictionaryStorage() = default;

  [[nodiscard]] std::optional<std::size_t> positionOf(std::string_view key) const noexcept {
    if (positions != nullptr) return positions->find(entries, key);
    for (std::size_t i = 0; i < entries.size(); ++i) {
      if (entries[i].key == key) return i;
    }
    return std::nullopt;
  }

  /// Throws with nothing changed: an entry without its position would not be found.
  void append(std::string key, Value value) {
    const std::size_t count = entries.size() + 1;
    if (positions != nullptr) {
      positions->reserve(entries, count);
    } else if (count > kLinearSearchLimit) {
      auto table = std::make_unique<PositionTable>();
      table->reserve(entries, count);
      positions = std::move(table);
    }
    entries.push_back({std::move(key), std::move(value)});
    if (positions != nullptr) positions->add(entries, count - 1);
  }

  void erase(std::size_t position) noexcept {
    entries.erase(entries.begin() + static_cast<std::ptrdiff_t>(position));
    if (positions != nullptr) positions->rebuild(entries);
  }
};

Dictionary::Dictionary() noexcept = default;
Dictionary::Dictionary(std::initializer_list<DictionaryEntry> entries)
    : Dictionary(std::vector<DictionaryEntry>(entries)) {}
Dictionary::Dictionary(std::vector<DictionaryEntry> entries) {
  if (entries.empty()) return;
  if (entries.size() <= kLinearSearchLimit && areDistinctAndPresent(entries)) {
    storage_.write().entries = std::move(entries);
  } else {
    storage_.write().entries.reserve(entries.size());
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
  static NeverDestroyed<Value> missing;
  const Value* value = find(key);
  return value != nullptr ? *value : missing.get();
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
  // `other` may be this dictionary or stand in it, and this is about to change.
  const Dictionary source = other;  // NOLINT(performance-unnecessary-copy-initialization)
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
