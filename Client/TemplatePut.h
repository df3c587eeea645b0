#pragma once

#include "Client/ObjectOperation.h"
#include "Platform/Foundation/Data.h"
#include "Platform/Foundation/Value.h"
#include "varo/objects.h"
#include "varo/source.h"
#include "varo/units.h"

#include <cstdint>
#include <limits>
#include <memory>
#include <optional>

namespace varo::detail {

/// Puts an object where the template of a service says. Where the store refuses the bytes for their
/// time, asks for another template, once: nothing was stored then.
class TemplatePut final : public ObjectWork<ObjectInfo> {
 public:
  TemplatePut(std::shared_ptr<const ObjectPlace> place, ObjectKey key, Source source,
              std::optional<Bytes> perSecond);

  [[nodiscard]] std::string about() const override { return aboutObject("put of", key_); }
  [[nodiscard]] OperationKind kind() const override { return OperationKind::kObjectPut; }
  /// The body may be of any size, and its requests follow each other.
  [[nodiscard]] std::uint64_t memory() const override {
    return memory::sending(std::numeric_limits<std::uint64_t>::max());
  }
  [[nodiscard]] std::optional<Bytes> perSecond() const override { return perSecond_; }
  void run(const ObjectRunPtr& run, End end) override;
  /// Its requests belong together, and nobody knows what a repeat would do.
  [[nodiscard]] bool canPause() const override { return false; }

 private:
  struct Upload {
    platform::Dictionary parameters;
    platform::Data bytes;
    bool mayRepeat = false;
  };

  void send(const ObjectRunPtr& run, Upload upload, const End& end);
  /// What is posted for the template, and fills it.
  [[nodiscard]] Outcome<platform::Dictionary> parameters(const ObjectAccess& access) const;

  const std::shared_ptr<const ObjectPlace> place_;
  const ObjectKey key_;
  const std::optional<Bytes> perSecond_;
  std::optional<Source> source_;
};

}  // namespace varo::detail
