#pragma once

#include "Sandbox/Http/RequestBody.h"
#include "Sandbox/Online/Digest.h"

#include <optional>
#include <string>

namespace varo::sandbox {

/// Passes a body on while it takes its digest. A body with another digest than was promised ends
/// like one that broke off, so nothing is stored of it.
class CheckedBody final : public RequestBody {
 public:
  /// `promised` is a SHA-256 in hexadecimal; without it any body will do.
  CheckedBody(RequestBody& inner, std::optional<std::string> promised);

  End readInto(const Sink& sink) override;

  /// What the digest was, once it is known to be wrong.
  [[nodiscard]] const std::optional<std::string>& wrongDigest() const { return wrongDigest_; }

 private:
  RequestBody& inner_;
  const std::optional<std::string> promised_;
  std::optional<std::string> wrongDigest_;
};

}  // namespace varo::sandbox
