#pragma once

#include "Binary/Binary/Utils/S3RequestSigner.h"
#include "Client/ClientCore.h"
#include "Client/StoreClock.h"
#include "varo/objects.h"

#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <variant>

namespace varo::detail {

/// What the requests of one operation begin with.
struct ObjectAccess {
  /// None: they are not signed.
  std::optional<binary::S3Keys> keys;
  /// The service's; empty for none.
  std::string token;
  /// The options' own.
  platform::Dictionary headers;
};

/// What the copies of one `ObjectStore` share: where the objects are, and how requests are signed.
/// Immutable, but for the clock; thread-safe.
class ObjectPlace {
 public:
  using Where = std::variant<TemplateService, S3>;

  /// A server, and the beginning of a path there.
  struct Address {
    /// Scheme, host and port.
    std::string origin;
    /// As the header "Host" says it: without the port that is the scheme's own.
    std::string host;
    /// Not encoded; empty, or from its first slash.
    std::string path;
  };

  /// The first thing that is wrong, by its name.
  [[nodiscard]] static Outcome<std::shared_ptr<const ObjectPlace>> create(Where where,
                                                                          Options options);

  ObjectPlace(Where where, Address address, std::shared_ptr<ClientCore> core);

  [[nodiscard]] const std::shared_ptr<ClientCore>& core() const noexcept { return core_; }
  /// Null for an `S3`.
  [[nodiscard]] const TemplateService* templates() const noexcept {
    return std::get_if<TemplateService>(&where_);
  }
  [[nodiscard]] const std::string& region() const noexcept;
  /// Objects are below it; itself it is the bucket.
  [[nodiscard]] const Address& address() const noexcept { return address_; }

  /// Whether requests are signed.
  [[nodiscard]] bool signs() const noexcept;
  /// `Kind::kUnauthorized` where one is missing.
  [[nodiscard]] static Outcome<binary::S3Keys> keysIn(const Credentials& shown);
  [[nodiscard]] Outcome<ObjectAccess> access(const Credentials& shown) const;
  /// What signatures are dated by.
  [[nodiscard]] StoreClock& clock() const noexcept { return *clock_; }

 private:
  const Where where_;
  const Address address_;
  const std::shared_ptr<ClientCore> core_;
  const std::unique_ptr<StoreClock> clock_ = std::make_unique<StoreClock>();
};

/// None, or why the key cannot be used.
[[nodiscard]] Outcome<void> checked(const ObjectKey& key);

/// For messages: 'put of the object "a.txt"'.
[[nodiscard]] std::string aboutObject(std::string_view operation, const ObjectKey& key);

}  // namespace varo::detail
