#include "Client/PartialFile.h"

#include "Binary/Binary/Utils/ContentRange.h"
#include "Binary/BinaryFileAdapterWithMetadata/Constants/BinaryNetworkConstants.h"
#include "Client/Failures.h"
#include "Platform/Foundation/Error.h"
#include "Platform/Foundation/Text.h"
#include "Platform/Network/NetworkTuning.h"

#include <fmt/format.h>

#include <algorithm>
#include <limits>
#include <utility>

namespace varo::detail {

using platform::Data;
using platform::ErrorPtr;
using platform::HttpHeader;
using platform::MutexLock;
using platform::Result;

namespace {

constexpr int kPartialContent = 206;
constexpr std::string_view kErrorDomain = "Download";

ErrorPtr late() {
  return platform::Error::make(kErrorDomain, 0, "an earlier request was answered late");
}

std::string headerIn(const std::vector<HttpHeader>& headers, std::string_view name) {
  for (const HttpHeader& header : headers) {
    if (platform::equalIgnoringCase(header.name, name)) return header.value;
  }
  return {};
}

/// Weak tags ("W/...") do not say that bytes are the same.
std::string strongTagIn(const std::vector<HttpHeader>& headers) {
  std::string tag = headerIn(headers, "ETag");
  return tag.starts_with('"') ? tag : std::string();
}

}  // namespace

/// Of one run.
class PartialFile::Receiver final : public platform::BodyReceiver {
 public:
  Receiver(std::shared_ptr<PartialFile> file, std::uint64_t run, OnBytes onBytes)
      : file_(std::move(file)), run_(run), onBytes_(std::move(onBytes)) {}

  Result<void> begin(int status, const std::vector<HttpHeader>& headers,
                     std::optional<std::uint64_t> expected) override {
    return file_->begin(run_, status, headers, expected);
  }
  Result<void> write(std::string_view bytes) override {
    const auto count = file_->write(run_, bytes);
    if (!count) return count.error();
    onBytes_(count->done, count->total);
    return {};
  }

 private:
  const std::shared_ptr<PartialFile> file_;
  const std::uint64_t run_;
  const OnBytes onBytes_;
};

PartialFile::PartialFile(std::string about, const std::string& directory,
                         std::optional<FileRange> range)
    : about_(std::move(about)), directory_(directory), range_(range) {
  const MutexLock lock(mutex_);
  startOver();
}

void PartialFile::startOver() {
  bytes_.emplace(directory_, platform::tuning::kWriteSize);
  total_.reset();
  objectSize_.reset();
  entityTag_.clear();
}

std::uint64_t PartialFile::position() const {
  return (range_ ? range_->first : 0) + bytes_->size();
}

std::optional<std::uint64_t> PartialFile::lastWanted() const {
  if (!range_ || !range_->length) return std::nullopt;
  const std::uint64_t most = std::numeric_limits<std::uint64_t>::max() - range_->first;
  return range_->first + std::min(range_->length->count - 1, most);
}

PartialFile::Run PartialFile::beginRun(OnBytes onBytes) {
  const MutexLock lock(mutex_);
  failure_.reset();
  if (entityTag_.empty() && !handedOut_) startOver();
  Run run;
  run.receiver = std::make_shared<Receiver>(shared_from_this(), ++run_, std::move(onBytes));
  if (!range_ && bytes_->size() == 0) return run;
  const auto last = lastWanted();
  run.headers.set(binary::kRange,
                  fmt::format("bytes={}-{}", position(), last ? fmt::to_string(*last) : ""));
  if (bytes_->size() > 0) run.headers.set(binary::kIfRange, entityTag_);
  return run;
}

Result<void> PartialFile::begin(std::uint64_t run, int status,
                                const std::vector<HttpHeader>& headers,
                                std::optional<std::uint64_t> expected) {
  const MutexLock lock(mutex_);
  if (run != run_) return late();
  const std::string tag = strongTagIn(headers);
  const bool isOther = bytes_->size() > 0 && (tag.empty() || tag != entityTag_);
  if (status == kPartialContent) {
    if (isOther) return fail("the file has changed since its first bytes came");
    if (auto begun = beginPart(headerIn(headers, binary::kContentRange), expected); !begun) {
      return begun;
    }
  } else if (auto begun = beginWhole(expected); !begun) {
    return begun;
  }
  entityTag_ = tag;
  return {};
}

Result<void> PartialFile::beginPart(std::string_view contentRange,
                                    std::optional<std::uint64_t> expected) {
  const auto range = binary::ContentRange::parse(contentRange);
  const std::string others = fmt::format(
      "the server sent other bytes than those that were asked for: \"{}\"", contentRange);
  if (!range || !range->span) return fail(others);
  const auto first = static_cast<std::uint64_t>(range->span->first);
  const auto last = static_cast<std::uint64_t>(range->span->last);
  std::optional<std::uint64_t> end = lastWanted();
  if (range->total) {
    const auto lastOfObject = static_cast<std::uint64_t>(*range->total) - 1;
    end = std::min(end.value_or(lastOfObject), lastOfObject);
  }
  // Without the object's size or a wanted end nobody knows whether this is all.
  if (first != position() || !end || last != *end) return fail(others);
  if (expected && *expected != last - first + 1) return fail(others);
  if (bytes_->size() > 0 && objectSize_ && range->total != objectSize_) {
    return fail(others);
  }
  objectSize_ = range->total;
  const bool isNew = bytes_->size() == 0;
  total_ = bytes_->size() + last - first + 1;
  return isNew ? noted(bytes_->expect(*total_)) : Result<void>();
}

Result<void> PartialFile::beginWhole(std::optional<std::uint64_t> expected) {
  if (range_) return fail("the server sent the whole file where a part was asked for");
  if (bytes_->size() > 0) {
    if (handedOut_) return fail("the file has changed since its first bytes came");
    startOver();
  }
  total_ = expected;
  return expected ? noted(bytes_->expect(*expected)) : Result<void>();
}

Result<PartialFile::Count> PartialFile::write(std::uint64_t run, std::string_view bytes) {
  const MutexLock lock(mutex_);
  if (run != run_) return late();
  if (total_ && bytes_->size() + bytes.size() > *total_) {
    return fail(fmt::format("the server sent more than {} bytes", *total_));
  }
  if (auto written = noted(bytes_->write(bytes)); !written) return written.error();
  return Count{bytes_->size(), total_.value_or(0)};
}

bool PartialFile::canGoOn() const {
  const MutexLock lock(mutex_);
  return !handedOut_ || !entityTag_.empty();
}

bool PartialFile::isComplete() const {
  const MutexLock lock(mutex_);
  return total_ && bytes_->size() == *total_;
}

std::optional<Failure> PartialFile::failure() const {
  const MutexLock lock(mutex_);
  return failure_;
}

Result<Data> PartialFile::handOut(std::uint64_t offset, std::size_t most) {
  const MutexLock lock(mutex_);
  if (bytes_->size() <= offset) return Data();  // not there yet, or taken
  handedOut_ = true;
  return bytes_->look(offset, most);
}

Result<Data> PartialFile::take() {
  const MutexLock lock(mutex_);
  if (total_ && bytes_->size() != *total_) {
    return fail(fmt::format("only {} of {} bytes came", bytes_->size(), *total_));
  }
  return bytes_->take();
}

Result<void> PartialFile::noted(Result<void> stored) {
  if (!stored) failure_ = failureFrom(stored.error(), about_);
  return stored;
}

ErrorPtr PartialFile::fail(const std::string& what) {
  failure_ = failureOf(Kind::kIntegrity, fmt::format("{}: {}", about_, what));
  return platform::Error::make(kErrorDomain, 0, what);
}

}  // namespace varo::detail
