#pragma once

#include "Sandbox/Files/TemplateKind.h"

#include <boost/json/object.hpp>

#include <optional>
#include <string>
#include <string_view>

namespace varo::sandbox {

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
