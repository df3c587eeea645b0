#include "Platform/Foundation/Data.h"

#include "Platform/Foundation/Error.h"
#include "Platform/Foundation/File.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cassert>
#include <cerrno>
#include <cstring>
#include <utility>
#include <vector>

namespace varo::platform {
namespace {

// What is held of a file at once, however large it is.
constexpr std::size_t kPiece = std::size_t{256} * 1024;
constexpr std::size_t kComparisonBlock = std::size_t{64} * 1024;
constexpr std::size_t kDescribedBytes = 8;

}  // namespace

Data::Data(Data&& other) noexcept
    : bytes_(std::move(other.bytes_)),
      file_(std::move(other.file_)),
      offset_(std::exchange(other.offset_, 0)),
      // Without these two the moved-from object would claim bytes that it no longer has.
      length_(std::exchange(other.length_, 0)) {}

Data& Data::operator=(Data&& other) noexcept {
  Data taken(std::move(other));
  bytes_.swap(taken.bytes_);
  file_.swap(taken.file_);
  offset_ = taken.offset_;
  length_ = taken.length_;
  return *this;
}

Data Data::fromBytes(std::string bytes) {
  return sharing(std::make_shared<const std::string>(std::move(bytes)));
}

Data Data::sharing(std::shared_ptr<const std::string> bytes) {
  Data data;
  data.length_ = bytes->size();
  data.bytes_ = std::move(bytes);
  return data;
}

Data Data::copyOf(std::span<const std::byte> bytes) {
  std::string copy(bytes.size(), '\0');
  if (!bytes.empty()) std::memcpy(copy.data(), bytes.data(), bytes.size());
  return fromBytes(std::move(copy));
}

Result<Data> Data::fromFile(const std::string& path) {
  auto file = File::openForReading(path);
  if (!file) return file.error();
  const auto size = file.value()->size();
  if (!size) return size.error();
  return fromFileRegion(std::move(file).value(), 0, *size);
}

Data Data::fromFileRegion(std::shared_ptr<const File> file, std::uint64_t offset,
                          std::uint64_t length) {
  assert(file != nullptr);
  Data data;
  data.file_ = std::move(file);
  data.offset_ = offset;
  data.length_ = length;
  return data;
}

Data Data::slice(std::uint64_t offset, std::uint64_t length) const {
  Data part = *this;
  const std::uint64_t start = std::min(offset, length_);
  part.offset_ += start;
  part.length_ = std::min(length, length_ - start);
  return part;
}

std::optional<std::string_view> Data::memory() const noexcept {
  if (file_ != nullptr) return std::nullopt;
  if (bytes_ == nullptr) return std::string_view();
  return std::string_view(*bytes_).substr(offset_, length_);
}

Result<std::size_t> Data::read(std::uint64_t offset, std::span<char> buffer) const {
  const std::uint64_t start = std::min(offset, length_);
  const std::size_t wanted = std::min<std::uint64_t>(buffer.size(), length_ - start);
  if (wanted == 0) return std::size_t{0};
  if (const auto bytes = memory()) {
    std::memcpy(buffer.data(), bytes->data() + start, wanted);
    return wanted;
  }
  auto count = file_->readAt(offset_ + start, buffer.first(wanted));
  // The file was cut since its size was taken. What there is of it must not pass for the whole.
  if (count.ok() && *count < wanted) {
    return Error::fromErrno(EIO, "Unexpected end of", file_->path());
  }
  return count;
}

Result<void> Data::forEachPiece(
    const std::function<Result<void>(std::string_view piece)>& consume) const {
  if (const auto bytes = memory()) return bytes->empty() ? Result<void>() : consume(*bytes);
  std::vector<char> piece(std::min<std::uint64_t>(kPiece, length_));
  for (std::uint64_t offset = 0; offset < length_;) {
    const auto count = read(offset, piece);
    if (!count) return count.error();
    if (auto consumed = consume({piece.data(), *count}); !consumed) return consumed;
    offset += *count;
  }
  return {};
}

Result<std::string> Data::readAll(std::uint64_t limit) const {
  if (length_ > limit) return Error::fromErrno(EFBIG, "Reading", fmt::format("{} bytes", length_));
  std::string bytes(length_, '\0');
  const auto count = read(0, bytes);
  if (!count) return count.error();
  return bytes;
}

std::string Data::description() const {
  std::array<char, kDescribedBytes> start{};
  const auto count = read(0, start);
  std::string text = fmt::format("<{} bytes", length_);
  if (count.ok() && *count > 0) text += ':';
  for (std::size_t i = 0; count.ok() && i < *count; ++i) {
    text += fmt::format(" {:02x}", static_cast<unsigned char>(start[i]));
  }
  if (length_ > kDescribedBytes) text += " ...";
  return text + '>';
}

bool operator==(const Data& left, const Data& right) {
  if (left.length_ != right.length_) return false;
  // Block by block, since both may be files larger than the memory.
  std::vector<char> a(std::min<std::uint64_t>(kComparisonBlock, left.length_));
  std::vector<char> b(a.size());
  for (std::uint64_t offset = 0; offset < left.length_; offset += a.size()) {
    const auto first = left.read(offset, a);
    const auto second = right.read(offset, b);
    if (!first || !second || *first != *second) return false;
    if (std::memcmp(a.data(), b.data(), *first) != 0) return false;
  }
  return true;
}

}  // namespace varo::platform
