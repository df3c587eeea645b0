#include "Cli/Run/StandardInput.h"

#include "Cli/Run/Interrupts.h"
#include "Cli/Run/TemporaryDirectory.h"
#include "Platform/Foundation/Error.h"
#include "Platform/Foundation/File.h"
#include "Platform/System/FileCalls.h"

#include <array>
#include <cerrno>
#include <filesystem>
#include <memory>
#include <poll.h>
#include <span>
#include <string_view>
#include <system_error>
#include <unistd.h>
#include <utility>

namespace varo::cli {

using platform::Error;
using platform::File;
using platform::Result;

namespace {

constexpr std::size_t kPiece = std::size_t{256} * 1024;
/// How soon an interrupt is noticed while nothing arrives.
constexpr int kPollMs = 100;

constexpr std::string_view kWhat = "cannot copy standard input to";
constexpr std::string_view kNoDirectory = "cannot find the directory for temporary files";

/// Bytes read into `buffer`, 0 at the end, or `errno` as a negative number.
ssize_t readSome(int descriptor, const Interrupts& interrupts, std::span<char> buffer) {
  while (true) {
    if (interrupts.raised()) return -ECANCELED;
    // A read alone would wait until somebody types, and no interrupt would end it.
    pollfd source{descriptor, POLLIN, 0};
    const int ready = ::poll(&source, 1, kPollMs);
    if (ready == 0 || (ready < 0 && errno == EINTR)) continue;
    const ssize_t length = ::read(descriptor, buffer.data(), buffer.size());
    // A terminal may give less than was asked for; only 0 is the end.
    if (length >= 0) return length;
    if (errno != EINTR && errno != EAGAIN) return -errno;
  }
}

Result<void> copyAll(int descriptor, const Interrupts& interrupts, File& file) {
  const auto buffer = std::make_unique<std::array<char, kPiece>>();
  std::uint64_t offset = 0;
  while (true) {
    const ssize_t length = readSome(descriptor, interrupts, *buffer);
    if (length == 0) return {};
    if (length < 0) return Error::fromErrno(static_cast<int>(-length), kWhat, file.path());
    const auto count = static_cast<std::size_t>(length);
    if (auto written = file.writeAt(offset, {buffer->data(), count}); !written) return written;
    offset += count;
  }
}

Result<void> storeWhole(const std::shared_ptr<File>& file, const std::string& path) {
  const auto size = file->size();
  if (!size) return size.error();
  return platform::storeNewFile(path, platform::Data::fromFileRegion(file, 0, *size));
}

}  // namespace

std::string readLine(int descriptor, const Interrupts& interrupts) {
  constexpr std::size_t kLongest = 1024;
  std::string line;
  char next = 0;
  // One at a time: what stands behind the line is not ours.
  while (line.size() < kLongest && readSome(descriptor, interrupts, {&next, 1}) == 1) {
    if (next == '\n') break;
    line += next;
  }
  return line;
}

Result<InputCopy> InputCopy::make(int descriptor, const Interrupts& interrupts) {
  std::error_code failed;
  const std::filesystem::path directory = std::filesystem::temp_directory_path(failed);
  if (failed) return Error::fromErrno(failed.value(), kNoDirectory, "");
  // Without a name nothing is left behind, however the program ends.
  auto file = File::createUnnamed(directory);
  if (!file) return file.error();
  if (auto copied = copyAll(descriptor, interrupts, **file); !copied) return copied.error();
  // The library opens a file by its path.
  if (auto path = platform::system::pathOfOpen((*file)->descriptor())) {
    return InputCopy(*file, std::move(*path));
  }
  auto named = TemporaryDirectory::make();
  if (!named) return named.error();
  const auto owner = std::make_shared<TemporaryDirectory>(std::move(named).value());
  std::string path = owner->path() + "/input";
  if (auto stored = storeWhole(*file, path); !stored) return stored.error();
  return InputCopy(owner, std::move(path));
}

}  // namespace varo::cli
