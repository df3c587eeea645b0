#pragma once

#include <optional>

namespace varo::sandbox {

/// How the bytes of an upload are to be sent, as its upload template says.
struct TemplateKind {
  enum class Domain { kService, kStore };
  enum class Mode { kBinary, kMultipart };
  enum class Method { kPut, kPost };

  Domain domain = Domain::kService;
  Mode mode = Mode::kBinary;
  Method method = Method::kPut;
  /// "chunkupload" of the template; absent, the template has no such entry, which means true.
  std::optional<bool> chunked = true;

  friend bool operator==(const TemplateKind&, const TemplateKind&) = default;
};

}  // namespace varo::sandbox
