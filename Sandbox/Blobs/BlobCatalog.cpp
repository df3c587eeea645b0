#include "Sandbox/Blobs/BlobCatalog.h"

#include "Sandbox/Blobs/BlobObject.h"
#include "Sandbox/Blobs/GeneratedBytes.h"
#include "Sandbox/Http/JsonText.h"
#include "Sandbox/Storage/DiskWriter.h"

#include <boost/json/array.hpp>
#include <boost/json/object.hpp>
#include <boost/json/serialize.hpp>
#include <fmt/format.h>

#include <algorithm>
#include <span>
#include <utility>
#include <variant>

namespace varo::sandbox {
namespace json = boost::json;
namespace {

/// The key as one text, the same in whatever order the columns came.
std::string nameOf(const BlobKey& key) {
  auto columns = key.primaryKeys;
  std::sort(columns.begin(), columns.end());
  // JSON keeps the parts apart, whatever characters a value has.
  json::array name{key.scope, key.object};
  for (const auto& [column, value] : columns) {
    name.emplace_back(column);
    name.emplace_back(value);
  }
  return json::serialize(name);
}

}  // namespace

BlobCatalog::BlobCatalog(RecordDatabase& records, DiskStore& bytes)
    : records_(records), bytes_(bytes) {}

std::optional<BlobObject> BlobCatalog::findObjectLocked(const std::string& name) const {
  const auto text = records_.findObject(name);
  const auto entries = text ? parseJsonObject(*text) : std::nullopt;
  if (!entries) return std::nullopt;
  auto object = blobObjectFrom(*entries, {});
  if (std::holds_alternative<std::string>(object)) return std::nullopt;
  return std::get<BlobObject>(std::move(object));
}

std::optional<BlobCatalog::Found> BlobCatalog::find(const BlobKey& key) const {
  const std::string name = nameOf(key);
  const platform::MutexLock lock(mutex_);
  auto object = findObjectLocked(name);
  if (!object) return std::nullopt;
  Found found{*std::move(object), nullptr, 0, ""};
  if (const auto& generated = found.object.generated) {
    found.bytes = [bytes = GeneratedBytes(generated->seed, generated->size)](
                      std::uint64_t offset, std::span<char> buffer) {
      return bytes.readAt(offset, buffer) == static_cast<std::int64_t>(buffer.size());
    };
    found.size = generated->size;
    found.entityTag = fmt::format("\"{:x}-{:x}\"", generated->seed, generated->size);
  } else if (auto stored = bytes_.open(name)) {
    found.bytes = std::move(stored->bytes);
    found.size = stored->state.size;
    found.entityTag = std::move(stored->state.entityTag);
  }
  return found;
}

std::optional<std::string> BlobCatalog::define(const BlobKey& key, const json::object& entries) {
  const std::string name = nameOf(key);
  const platform::MutexLock lock(mutex_);
  auto object = blobObjectFrom(entries, findObjectLocked(name).value_or(BlobObject{}));
  if (auto* problem = std::get_if<std::string>(&object)) return std::move(*problem);
  putLocked(name, std::get<BlobObject>(object));
  return std::nullopt;
}

void BlobCatalog::put(const BlobKey& key, const BlobObject& object) {
  const std::string name = nameOf(key);
  const platform::MutexLock lock(mutex_);
  putLocked(name, object);
}

void BlobCatalog::putLocked(const std::string& name, const BlobObject& object) {
  records_.putObject(name, json::serialize(entriesOf(object)));
  // After the record: from then on nobody asks for the stored bytes any more.
  if (object.generated) bytes_.discard(name);
}

DiskStore::WriterOrProblem BlobCatalog::write(const BlobKey& key) {
  return bytes_.writeWhole(nameOf(key));
}

void BlobCatalog::putStored(const BlobKey& key) {
  const std::string name = nameOf(key);
  const platform::MutexLock lock(mutex_);
  BlobObject object = findObjectLocked(name).value_or(BlobObject{});
  object.generated.reset();
  putLocked(name, object);
}

void BlobCatalog::clear() {
  const platform::MutexLock lock(mutex_);
  for (const std::string& name : records_.removeObjects()) bytes_.discard(name);
}

}  // namespace varo::sandbox
