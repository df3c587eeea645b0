#include "Client/C/CContent.h"

#include "Client/C/GivenStruct.h"

#include <optional>
#include <span>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

namespace varo::capi {

namespace {

static_assert(static_cast<int>(IfExists::kFail) == VARO_IF_EXISTS_FAIL);
static_assert(static_cast<int>(IfExists::kReplace) == VARO_IF_EXISTS_REPLACE);
static_assert(static_cast<int>(IfExists::kKeep) == VARO_IF_EXISTS_KEEP);
static_assert(static_cast<int>(IfExists::kNumber) == VARO_IF_EXISTS_NUMBER);

}  // namespace

Outcome<Source> sourceOfPath(const char* path) {
  if (path == nullptr) return missing("path");
  return Source::file(path);
}

Outcome<Source> sourceOfBytes(const void* bytes, std::size_t length) {
  if (bytes == nullptr && length > 0) return missing("bytes");
  const std::span given(static_cast<const std::byte*>(bytes), length);
  return Source::bytes(std::vector<std::byte>(given.begin(), given.end()));
}

Outcome<Source> sourceOfReader(varo_read_fn read, void* user, std::uint64_t length) {
  if (read == nullptr) return missing("read");
  Reader reader = [read, user](std::span<std::byte> buffer) -> std::optional<std::size_t> {
    const std::int64_t count = read(user, buffer.data(), buffer.size());
    if (count < 0) return std::nullopt;
    return static_cast<std::size_t>(count);
  };
  if (length == VARO_UNKNOWN_LENGTH) return Source::reader(std::move(reader));
  return Source::reader(Bytes(length), std::move(reader));
}

Outcome<Destination> destinationAt(const char* path) {
  if (path == nullptr) return missing("path");
  return Destination(std::filesystem::path(path));
}

Outcome<Destination> destinationOfSink(varo_write_fn write, void* user) {
  if (write == nullptr) return missing("write");
  return Destination([write, user](std::span<const std::byte> bytes) {
    // What a sink throws is how it ends the transfer.
    if (const int refused = write(user, bytes.data(), bytes.size()); refused != 0) {
      throw std::runtime_error("the function that takes the bytes returned " +
                               std::to_string(refused));
    }
  });
}

Outcome<IfExists> ifExistsFrom(varo_if_exists ifExists) {
  if (ifExists < VARO_IF_EXISTS_FAIL || ifExists > VARO_IF_EXISTS_NUMBER) {
    return invalid("if_exists is " + std::to_string(static_cast<int>(ifExists)) +
                   ", none of varo_if_exists");
  }
  return static_cast<IfExists>(ifExists);
}

}  // namespace varo::capi
