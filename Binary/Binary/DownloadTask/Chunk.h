#pragma once

#include "Platform/Foundation/Data.h"
#include "Platform/Foundation/Object.h"

#include <cstdint>
#include <optional>
#include <string>

namespace varo::binary {

/// The bytes of one range of an object. Immutable, so shared freely between threads.
class Chunk final : public platform::Object {
 public:
  /// The end marker. It has no data at all, unlike a range of zero bytes.
  Chunk() = default;
  Chunk(platform::Data data, std::int64_t offset) : data_(std::move(data)), offset_(offset) {}

  /// None in an end marker; empty where the server sent a range of zero bytes.
  [[nodiscard]] const std::optional<platform::Data>& data() const noexcept { return data_; }
  /// Position of the first byte in the object.
  [[nodiscard]] std::int64_t offset() const noexcept { return offset_; }

  [[nodiscard]] std::string description() const override;

 private:
  const std::optional<platform::Data> data_;
  const std::int64_t offset_ = 0;
};

}  // namespace varo::binary
