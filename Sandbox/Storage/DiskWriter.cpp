#include "Sandbox/Storage/DiskWriter.h"

#include "Sandbox/ServiceProtocol.h"
#include "Sandbox/Storage/RandomName.h"

#include <fmt/format.h>

#include <algorithm>
#include <chrono>
#include <span>
#include <unistd.h>
#include <utility>
#include <vector>

namespace varo::sandbox {
namespace {

constexpr std::uint64_t kCopyBlock = std::uint64_t{1024} * 1024;

/// The `length` bytes at `from`, which do not overlap those at the front.
bool copyToFront(platform::File& file, std::uint64_t from, std::uint64_t length) {
  std::vector<char> block(static_cast<std::size_t>(std::min(kCopyBlock, length)));
  for (std::uint64_t done = 0; done < length;) {
    const std::span<char> piece(block.data(), static_cast<std::size_t>(std::min<std::uint64_t>(
                                                  block.size(), length - done)));
    const auto count = file.readAt(from + done, piece);
    if (!count || *count != piece.size()) return false;
    if (!file.writeAt(done, {piece.data(), piece.size()})) return false;
    done += piece.size();
  }
  return true;
}

}  // namespace

DiskWriter::DiskWriter(DiskStore& store, std::shared_ptr<void> lease, std::string key,
                       std::uint64_t sequence, StoredBytes previous, StoredBytes next,
                       std::shared_ptr<platform::File> file)
    : store_(store),
      lease_(std::move(lease)),
      key_(std::move(key)),
      sequence_(sequence),
      previous_(std::move(previous)),
      next_(std::move(next)),
      file_(std::move(file)),
      offset_(sequence > 1 ? (sequence - 1) * previous_.chunkLength : 0) {
  if (!file_) problem_ = WriteProblem{kInternal, "the file for the bytes cannot be opened"};
}

DiskWriter::~DiskWriter() {
  // Runs before the lease ends. A later chunk shares its file with the content that counts, and
  // what it left behind that content is overwritten by the next try.
  const bool isNewFile = next_.fileName != previous_.fileName;
  if (!finished_ && isNewFile) ::unlink(store_.pathOf(next_.fileName).c_str());
}

bool DiskWriter::write(std::string_view bytes) {
  if (problem_) return false;
  // Until it is longer than the first chunk, nobody can tell whether this is chunk n or all of the
  // content once more. It is taken for chunk n until then.
  if (isLaterChunk() && !holdsWholeContent_) {
    const std::uint64_t room = previous_.chunkLength - written_;
    const std::string_view fitting = bytes.substr(0, static_cast<std::size_t>(room));
    if (!file_->writeAt(offset_ + written_, fitting)) {
      problem_ = WriteProblem{kInternal, "the bytes cannot be written"};
      return false;
    }
    written_ += fitting.size();
    bytes.remove_prefix(fitting.size());
    if (bytes.empty()) return true;
    if (!becomeWholeContent()) return false;
  }
  if (holdsWholeContent_ && written_ + bytes.size() > sequence_ * previous_.chunkLength) {
    problem_ = WriteProblem{kBadChunk, fmt::format("chunk {} is too long", sequence_)};
    return false;
  }
  if (!file_->writeAt(written_, bytes)) {
    problem_ = WriteProblem{kInternal, "the bytes cannot be written"};
    return false;
  }
  written_ += bytes.size();
  return true;
}

// The chunk turned out longer than the first one: what it brought so far belongs to the front.
bool DiskWriter::becomeWholeContent() {
  holdsWholeContent_ = true;
  if (copyToFront(*file_, offset_, written_)) return true;
  problem_ = WriteProblem{kInternal, "the bytes cannot be written"};
  return false;
}

std::optional<WriteProblem> DiskWriter::checkLaterChunk() const {
  if (written_ == 0) {
    return WriteProblem{kBadChunk, fmt::format("chunk {} is empty", sequence_)};
  }
  if (holdsWholeContent_ && written_ <= offset_) {
    return WriteProblem{
        kBadChunk, fmt::format("chunk {} has {} bytes: more than a chunk, less than all", sequence_,
                               written_)};
  }
  return std::nullopt;
}

std::optional<WriteProblem> DiskWriter::finish() {
  if (!problem_ && isLaterChunk()) problem_ = checkLaterChunk();
  if (problem_) return problem_;
  next_.size = holdsWholeContent_ ? written_ : offset_ + written_;
  next_.chunks = std::max<std::uint64_t>(sequence_, 1);
  if (!isLaterChunk()) next_.chunkLength = written_;
  // New with every write, so that a client notices that the bytes are others, whatever they are.
  next_.entityTag = "\"" + randomName() + "\"";
  next_.modified = std::chrono::floor<std::chrono::seconds>(std::chrono::system_clock::now());
  // A repeated chunk may be shorter than what it replaces.
  if (!file_->setSize(next_.size)) {
    return WriteProblem{kInternal, "the bytes cannot be written"};
  }
  store_.publish(key_, next_, previous_.fileName);
  // From here on the record names the file, and the destructor leaves it alone.
  finished_ = true;
  return std::nullopt;
}

}  // namespace varo::sandbox
