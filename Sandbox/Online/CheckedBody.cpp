#include "Sandbox/Online/CheckedBody.h"

#include <utility>

namespace varo::sandbox {

CheckedBody::CheckedBody(RequestBody& inner, std::optional<std::string> promised)
    : inner_(inner), promised_(std::move(promised)) {}

RequestBody::End CheckedBody::readInto(const Sink& sink) {
  if (!promised_) return inner_.readInto(sink);
  Digest digest;
  const End end = inner_.readInto([&](std::string_view piece) {
    digest.update(piece);
    return sink(piece);
  });
  if (end != End::kComplete) return end;
  // Known with the last byte only. The sink has the bytes by now, but has not made them count yet.
  std::string computed = digest.hex();
  if (computed == *promised_) return end;
  wrongDigest_ = std::move(computed);
  return End::kBroken;
}

}  // namespace varo::sandbox
