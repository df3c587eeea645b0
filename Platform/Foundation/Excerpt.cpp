#include "Platform/Foundation/Excerpt.h"

#include "Platform/Foundation/Error.h"
#include "Platform/Foundation/Redaction.h"
#include "Platform/Foundation/Text.h"

#include <fmt/format.h>

namespace varo::platform {

namespace {

/// What is read: a secret that begins in the excerpt is redacted also where it ends behind it.
constexpr std::size_t kRead = 2 * kExcerptLimit;

}  // namespace

std::string excerptOf(std::string_view bytes, const Dictionary& sent) {
  std::string text = redactSecrets(sanitizeUtf8(utf8Prefix(bytes, kRead)), sent);
  text.resize(utf8Prefix(text, kExcerptLimit).size());
  return text;
}

std::string excerptOf(const Data& data, const Dictionary& sent) {
  // One byte more than is used tells whether the last character is cut.
  const Result<std::string> start = data.slice(0, kRead + 1).readAll(kRead + 1);
  if (!start) return fmt::format("<unreadable: {}>", start.error()->localizedDescription());
  return excerptOf(*start, sent);
}

}  // namespace varo::platform
