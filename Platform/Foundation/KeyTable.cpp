#include "Platform/Foundation/KeyTable.h"

#include "Platform/Foundation/KeyHash.h"

#include <algorithm>
#include <limits>
#include <stdexcept>

namespace varo::platform {
namespace {

constexpr std::size_t kLeastSlots = 64;

std::uint32_t upperHalf(std::uint64_t hash) noexcept {
  return static_cast<std::uint32_t>(hash >> 32U);
}

}  // namespace

void KeyTable::Positions::reserve(const std::string* keys, std::size_t count,
                                  std::size_t newCount) {
  if (newCount > std::numeric_limits<std::uint32_t>::max() / 2) {
    throw std::length_error("A dictionary has too many entries");
  }
  std::size_t size = std::max<std::size_t>(slots_.size(), kLeastSlots);
  while (size / 4 * 3 < newCount) size *= 2;
  if (size == slots_.size()) return;
  slots_ = std::vector<Slot>(size);
  for (std::size_t i = 0; i < count; ++i) add(keys[i], i);
}

void KeyTable::Positions::add(std::string_view key, std::size_t position) noexcept {
  const std::uint64_t hash = keyHash(key);
  std::size_t i = hash & (slots_.size() - 1);
  while (slots_[i].next != 0) i = (i + 1) & (slots_.size() - 1);
  slots_[i] = {static_cast<std::uint32_t>(position + 1), upperHalf(hash)};
}

void KeyTable::Positions::rebuild(const std::string* keys, std::size_t count) noexcept {
  std::fill(slots_.begin(), slots_.end(), Slot{});
  for (std::size_t i = 0; i < count; ++i) add(keys[i], i);
}

std::optional<std::size_t> KeyTable::Positions::find(const std::string* keys,
                                                     std::string_view key) const noexcept {
  const std::uint64_t hash = keyHash(key);
  for (std::size_t i = hash & (slots_.size() - 1); slots_[i].next != 0;
       i = (i + 1) & (slots_.size() - 1)) {
    const std::size_t position = slots_[i].next - 1;
    if (slots_[i].hash == upperHalf(hash) && keys[position] == key) return position;
  }
  return std::nullopt;
}

KeyTable KeyTable::firstKeys(std::size_t count) const {
  KeyTable table;
  table.reserve(std::max(count, std::min(size(), kLinearSearchLimit)));
  for (std::size_t i = 0; i < count; ++i) table.append(data()[i]);
  return table;
}

void KeyTable::erase(std::size_t position) {
  keys_.own(size());
  keys_.erase(position);
  if (keys_.ownedHead().areUsed()) keys_.ownedHead().rebuild(data(), size());
}

}  // namespace varo::platform
