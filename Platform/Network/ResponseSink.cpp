#include "Platform/Network/ResponseSink.h"

#include "Platform/Foundation/Error.h"
#include "Platform/Foundation/File.h"
#include "Platform/Network/NetworkTuning.h"

#include <fmt/format.h>

#include <algorithm>
#include <filesystem>
#include <system_error>
#include <utility>

namespace varo::platform {
namespace {

Result<std::shared_ptr<File>> createTemporaryFile() {
  std::error_code failure;
  const std::filesystem::path temporary = std::filesystem::temp_directory_path(failure);
  if (failure) return Error::fromErrno(failure.value(), "Finding", "the temporary directory");
  return File::createUnnamed(temporary.string());
}

Result<std::shared_ptr<File>> createSpoolFile(const std::string& directory) {
  if (directory.empty()) return createTemporaryFile();
  auto file = File::createUnnamed(directory);
  if (file) return file;
  // The file is only a stop on the way, so another directory will do.
  auto other = createTemporaryFile();
  if (other) return other;
  // What is wrong with the directory that was named is what the user can mend.
  Dictionary userInfo = file.error()->userInfo();
  userInfo.set(std::string(kLocalizedDescriptionKey),
               fmt::format("{}; {}", file.error()->localizedDescription(),
                           other.error()->localizedDescription()));
  return ErrorPtr(std::make_shared<const Error>(file.error()->domain(), file.error()->code(),
                                                std::move(userInfo)));
}

}  // namespace

ResponseSink::ResponseSink(std::string spoolDirectory, std::size_t gatherSize,
                           std::shared_ptr<BufferPool> buffers)
    : spoolDirectory_(std::move(spoolDirectory)),
      gatherSize_(gatherSize),
      buffers_(std::move(buffers)),
      buffer_(std::make_shared<std::string>()) {}

ResponseSink::ResponseSink(std::shared_ptr<File> file, std::uint64_t begin, std::size_t gatherSize)
    : gatherSize_(gatherSize),
      buffer_(std::make_shared<std::string>()),
      file_(std::move(file)),
      begin_(begin) {
  buffer_->reserve(gatherSize_);
}

Result<void> ResponseSink::expect(std::uint64_t size) {
  if (file_ != nullptr) return {};
  if (size > tuning::kSpoolThreshold) return startSpooling();
  const bool fillsMost = buffers_ != nullptr && size > buffers_->size() / 2;
  if (fillsMost && buffer_->empty()) buffer_ = buffers_->lend();
  // At once: growing with the bytes would copy them again and again.
  buffer_->reserve(static_cast<std::size_t>(size));
  return {};
}

Result<void> ResponseSink::startSpooling() {
  auto file = createSpoolFile(spoolDirectory_);
  if (!file) return file.error();
  file_ = std::move(file).value();
  if (!buffer_->empty()) {
    if (auto written = flush(); !written) return written;
  }
  // From here on the buffer only gathers, which needs less than it held.
  buffer_ = std::make_shared<std::string>();
  buffer_->reserve(gatherSize_);
  return {};
}

Result<void> ResponseSink::flush() {
  if (auto written = file_->writeAt(begin_ + spooled_, *buffer_); !written) return written;
  spooled_ += buffer_->size();
  buffer_->clear();
  return {};
}

Result<void> ResponseSink::write(std::string_view bytes) {
  if (file_ == nullptr) {
    if (buffer_->size() + bytes.size() <= tuning::kSpoolThreshold) {
      buffer_->append(bytes);
      return {};
    }
    if (auto started = startSpooling(); !started) return started;
  }
  // Pieces are cut so that every write covers whole pages: a page written in two parts is copied
  // and locked twice.
  while (!bytes.empty()) {
    const std::size_t room = std::min(gatherSize_ - buffer_->size(), bytes.size());
    buffer_->append(bytes.substr(0, room));
    bytes.remove_prefix(room);
    if (buffer_->size() == gatherSize_) {
      if (auto written = flush(); !written) return written;
    }
  }
  return {};
}

Result<Data> ResponseSink::look(std::uint64_t offset, std::size_t most) {
  const std::uint64_t length = std::min<std::uint64_t>(size() - offset, most);
  if (file_ == nullptr) {
    return Data::fromBytes(
        buffer_->substr(static_cast<std::size_t>(offset), static_cast<std::size_t>(length)));
  }
  if (offset + length > spooled_) {
    if (auto written = flush(); !written) return written.error();
  }
  return Data::fromFileRegion(file_, begin_ + offset, length);
}

Result<Data> ResponseSink::take() {
  if (file_ == nullptr) {
    return Data::sharing(std::exchange(buffer_, std::make_shared<std::string>()));
  }
  if (auto written = flush(); !written) return written.error();
  Data body =
      Data::fromFileRegion(std::exchange(file_, nullptr), begin_, std::exchange(spooled_, 0));
  return body;
}

}  // namespace varo::platform
