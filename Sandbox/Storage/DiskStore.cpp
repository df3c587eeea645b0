#include "Sandbox/Storage/DiskStore.h"

#include "Platform/Foundation/File.h"
#include "Sandbox/ServiceProtocol.h"
#include "Sandbox/Storage/DiskWriter.h"
#include "Sandbox/Storage/RandomName.h"

#include <fmt/format.h>

#include <exception>
#include <span>
#include <unistd.h>
#include <utility>

namespace varo::sandbox {
namespace {

using platform::File;

WriteProblem inProgress() {
  return {kWrongState, "another request is writing these bytes right now"};
}

ContentReader readerOf(std::shared_ptr<const File> file) {
  // The response keeps the file open. Replaced or removed meanwhile, it still has its bytes.
  return [file = std::move(file)](std::uint64_t offset, std::span<char> buffer) {
    const auto count = file->readAt(offset, buffer);
    return count && *count == buffer.size();
  };
}

/// Null where there is none: the writer says so when the bytes come.
std::shared_ptr<File> fileOrNull(platform::Result<std::shared_ptr<File>> opened) {
  return opened ? std::move(opened).value() : nullptr;
}

}  // namespace

DiskStore::DiskStore(std::string directory, std::string area, RecordDatabase& records)
    : directory_(std::move(directory)), area_(std::move(area)), records_(records) {}

std::optional<StoredBytes> DiskStore::state(std::string_view key) const {
  return records_.findStored(area_, key);
}

std::optional<DiskStore::Stored> DiskStore::open(std::string_view key) const {
  // The file may be replaced between the two steps; then the record names another one.
  for (int attempt = 0; attempt < 10; ++attempt) {
    auto state = records_.findStored(area_, key);
    if (!state) return std::nullopt;
    if (auto file = File::openForReading(pathOf(state->fileName))) {
      return Stored{*std::move(state), readerOf(std::move(file).value())};
    }
  }
  return std::nullopt;
}

std::vector<KeyedBytes> DiskStore::list(std::string_view prefix, std::string_view from,
                                        std::size_t limit) const {
  return records_.listStored(area_, prefix, from, limit);
}

DiskStore::WriterOrProblem DiskStore::writeWhole(const std::string& key) {
  // Before the record is read: from here on nobody else changes it.
  Lease lease = acquire(key);
  if (!lease) return inProgress();
  StoredBytes next;
  next.fileName = randomName();
  auto file = File::createNew(pathOf(next.fileName));
  return std::make_unique<DiskWriter>(*this, std::move(lease), key, 0,
                                      state(key).value_or(StoredBytes{}), std::move(next),
                                      fileOrNull(std::move(file)));
}

DiskStore::WriterOrProblem DiskStore::writeChunk(const std::string& key, std::uint64_t sequence) {
  if (sequence == 0) return WriteProblem{kBadChunk, "chunks are numbered from 1"};
  Lease lease = acquire(key);
  if (!lease) return inProgress();
  const StoredBytes previous = state(key).value_or(StoredBytes{});
  const auto refuse = [](std::string reason) { return WriteProblem{kBadChunk, std::move(reason)}; };
  // The last chunk may come once more: its response was lost, and the client sends it again.
  if (sequence > 1 && sequence != previous.chunks && sequence != previous.chunks + 1) {
    return refuse(
        fmt::format("chunk {} is out of order: {} came before", sequence, previous.chunks));
  }
  const std::uint64_t full = previous.chunks * previous.chunkLength;
  if (sequence > 1 && sequence == previous.chunks + 1 && previous.size != full) {
    return refuse(fmt::format("chunk {} comes after a short one, which was the last", sequence));
  }
  if (sequence > 1 && previous.chunkLength == 0) {
    return refuse("the first chunk was empty, so no other can follow");
  }
  StoredBytes next = previous;
  // A new file, so that the content before stays whole until this one is. Later chunks go into the
  // file that is there, behind what its record counts.
  if (sequence == 1) next = {.fileName = randomName()};
  const std::string path = pathOf(next.fileName);
  auto file = sequence == 1 ? File::createNew(path) : File::openForWriting(path);
  return std::make_unique<DiskWriter>(*this, std::move(lease), key, sequence, previous,
                                      std::move(next), fileOrNull(std::move(file)));
}

DiskStore::WriterOrProblem DiskStore::append(const std::string& key) {
  return writeChunk(key, state(key).value_or(StoredBytes{}).chunks + 1);
}

bool DiskStore::remove(const std::string& key) {
  const Lease lease = acquire(key);
  return lease && removeLeased(key);
}

void DiskStore::discard(const std::string& key) {
  const Lease lease = acquire(key, Afterwards::kDiscard);
  if (lease) removeLeased(key);
}

bool DiskStore::removeLeased(const std::string& key) {
  const auto found = state(key);
  if (!found) return false;
  // The record first. Killed in between, the sandbox leaves a file that nobody names, and never a
  // record without its bytes.
  records_.removeStored(area_, key);
  ::unlink(pathOf(found->fileName).c_str());
  return true;
}

DiskStore::Lease DiskStore::acquire(const std::string& key, Afterwards afterwards) {
  const platform::MutexLock lock(mutex_);
  const auto [entry, isFree] = busy_.try_emplace(key, Afterwards::kKeep);
  if (!isFree) {
    // Whoever holds the key does it when he ends: his bytes would otherwise come back after it.
    if (afterwards == Afterwards::kDiscard) entry->second = afterwards;
    return nullptr;
  }
  // Not for the pointer but for its deleter: the key is free again however the writer ends.
  return {&busy_, [this, key](void*) { release(key); }};
}

void DiskStore::release(const std::string& key) noexcept {
  auto afterwards = Afterwards::kKeep;
  {
    const platform::MutexLock lock(mutex_);
    const auto entry = busy_.find(key);
    afterwards = entry->second;
    busy_.erase(entry);
  }
  if (afterwards == Afterwards::kKeep) return;
  try {
    // Outside the lock, which it takes again. A writer that has come in between discards in turn.
    discard(key);
  } catch (const std::exception&) {
    // The database fails. Nobody waits for a response here, and the bytes have no record any more.
  }
}

std::string DiskStore::pathOf(const std::string& fileName) const {
  return directory_ + "/" + fileName;
}

void DiskStore::publish(const std::string& key, const StoredBytes& state,
                        const std::string& oldFileName) {
  // The old file goes last: until the record names the new one, readers open the old one.
  records_.putStored(area_, key, state);
  if (!oldFileName.empty() && oldFileName != state.fileName) ::unlink(pathOf(oldFileName).c_str());
}

}  // namespace varo::sandbox
