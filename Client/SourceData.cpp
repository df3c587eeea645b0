#include "Client/SourceData.h"

#include "Client/Failures.h"
#include "Platform/Foundation/File.h"

#include <fmt/format.h>

#include <cstddef>
#include <exception>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <utility>
#include <variant>
#include <vector>

namespace varo::detail {

using platform::Data;
using platform::File;

namespace {

constexpr std::string_view kReader = "The bytes to upload";
constexpr std::size_t kPiece = std::size_t{256} * 1024;

Failure readerFailed(std::string_view why) {
  return failureOf(Kind::kLocalFile, fmt::format("{} could not be read: {}", kReader, why));
}

/// How many bytes the reader put into the piece; a failure for what a reader must not do.
Outcome<std::size_t> readPiece(const Reader& read, std::span<std::byte> piece) {
  std::optional<std::size_t> count;
  try {
    count = read(piece);
  } catch (const std::exception& thrown) {
    return readerFailed(thrown.what());
  } catch (...) {  // an application's code may throw anything
    return readerFailed("the reader threw");
  }
  if (!count) return readerFailed("the reader could not go on");
  if (*count > piece.size()) return readerFailed("the reader gave more than there was room for");
  return *count;
}

Outcome<Data> spooled(const Source::Read& source) {
  if (source.read == nullptr) {
    return failureOf(Kind::kInvalidArgument, "The source of the upload has an empty reader");
  }
  std::error_code none;  // creating the file will tell
  auto file = File::createUnnamed(std::filesystem::temp_directory_path(none).string());
  if (!file) return failureFrom(file.error(), kReader);
  std::vector<std::byte> buffer(kPiece);
  std::uint64_t size = 0;
  for (;;) {
    auto count = readPiece(source.read, buffer);
    if (!count) return std::move(count).error();
    if (*count == 0) break;
    const std::string_view piece(reinterpret_cast<const char*>(buffer.data()), *count);
    if (auto written = (*file)->writeAt(size, piece); !written) {
      return failureFrom(written.error(), kReader);
    }
    size += *count;
    if (source.size && size > source.size->count) break;
  }
  if (source.size && size != source.size->count) {
    return readerFailed(fmt::format("the reader gave {} bytes where {} were announced",
                                    size > source.size->count ? "more" : fmt::to_string(size),
                                    source.size->count));
  }
  return Data::fromFileRegion(*file, 0, size);
}

Outcome<Data> opened(const std::filesystem::path& path) {
  auto data = Data::fromFile(path.string());
  if (!data) return failureFrom(data.error(), fmt::format("upload of \"{}\"", path.string()));
  return std::move(data).value();
}

}  // namespace

Outcome<Data> dataFrom(Source source) {
  Source::Content content = std::move(source).content();
  if (const auto* path = std::get_if<std::filesystem::path>(&content)) return opened(*path);
  if (const auto* read = std::get_if<Source::Read>(&content)) return spooled(*read);
  return Data::copyOf(std::get<std::vector<std::byte>>(content));
}

}  // namespace varo::detail
