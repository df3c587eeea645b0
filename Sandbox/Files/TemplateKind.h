#pragma once

#include <boost/json/fwd.hpp>

#include <optional>
#include <string>
#include <string_view>

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

/// `defaults` changed as the entries "domain" ("service" or "store"), "uploadMode" ("binary" or
/// "multipart"), "method" ("put" or "post") and "chunkupload" (boolean, or null for a template
/// without the entry) of `wish` say. Nothing when an entry is unknown or has another value.
[[nodiscard]] std::optional<TemplateKind> templateKindFrom(const boost::json::object& wish,
                                                           TemplateKind defaults);

/// The kind in the form that `templateKindFrom` reads.
[[nodiscard]] std::string textOf(const TemplateKind& kind);

[[nodiscard]] std::string_view methodName(TemplateKind::Method method);

/// The "upload_template" text for bytes that go to `domain` and `relativePath`.
[[nodiscard]] std::string uploadTemplateText(const TemplateKind& kind, std::string_view domain,
                                             std::string_view relativePath);
/// The "download_template" text.
[[nodiscard]] std::string downloadTemplateText(std::string_view domain,
                                               std::string_view relativePath);

}  // namespace varo::sandbox
