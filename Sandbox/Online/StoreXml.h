#pragma once

#include "Sandbox/Http/HttpResponse.h"

#include <chrono>
#include <string>
#include <string_view>

namespace varo::sandbox {

/// `<name>text</name>`. Whatever is no UTF-8 becomes U+FFFD. Control characters become references,
/// which no parser has to take (XML 1.0, 2.2): object stores do the same, and so clients that may
/// meet such keys ask for them percent-encoded.
[[nodiscard]] std::string xmlElement(std::string_view name, std::string_view text);

/// `<name>content</name>`, where `content` is XML already.
[[nodiscard]] std::string xmlParent(std::string_view name, std::string_view content);

/// A response with status 200 whose document is `content` under `root`, in the namespace of object
/// stores.
[[nodiscard]] HttpResponse xmlDocument(std::string_view root, std::string_view content);

/// As documents give an instant: "2009-10-12T17:50:30.000Z".
[[nodiscard]] std::string xmlTime(std::chrono::sys_seconds time);

}  // namespace varo::sandbox
