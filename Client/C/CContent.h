#pragma once

#include "varo/c/transfer.h"
#include "varo/outcome.h"
#include "varo/source.h"

#include <cstddef>
#include <cstdint>

namespace varo::capi {

// Where the bytes of a transfer come from and go to. What is NULL is named by the failure.
[[nodiscard]] Outcome<Source> sourceOfPath(const char* path);
[[nodiscard]] Outcome<Source> sourceOfBytes(const void* bytes, std::size_t length);
[[nodiscard]] Outcome<Source> sourceOfReader(varo_read_fn read, void* user, std::uint64_t length);
[[nodiscard]] Outcome<Destination> destinationAt(const char* path);
[[nodiscard]] Outcome<Destination> destinationOfSink(varo_write_fn write, void* user);
[[nodiscard]] Outcome<IfExists> ifExistsFrom(varo_if_exists ifExists);

}  // namespace varo::capi
