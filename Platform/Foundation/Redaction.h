#pragma once

#include "Platform/Foundation/Dictionary.h"

#include <string>
#include <string_view>

namespace varo::platform {

class Value;

/// What stands in logs in place of a secret.
inline constexpr std::string_view kRedacted = "<redacted>";

/// Whether the value under this key, header name or query parameter is a secret: authorization
/// tokens, cookies, keys, signatures, session identifiers, passwords. Any letter case.
[[nodiscard]] bool isSecretKey(std::string_view key) noexcept;

/// `text`, JSON or a URL or anything else that a peer sent, with the values behind secret keys
/// replaced (`"key": "value"`, `key=value`, `key: value`, `key eq 'value'`, headers to the end of
/// their line), and without users and passwords in addresses. Words of a sentence stay: "Invalid
/// token: it expired at noon" tells no secret. Takes time linear in the text.
[[nodiscard]] std::string redactSecrets(std::string_view text);
/// The same, and wherever they stand the texts under secret keys of `sent`: a request's headers or
/// parameters, which a response may repeat.
[[nodiscard]] std::string redactSecrets(std::string_view text, const Dictionary& sent);

/// Whether `withoutSecrets` looks for secrets in texts as well: of a file's own description, say,
/// nothing is replaced.
enum class SearchTexts { kNo, kYes };

/// `value` as an error or a log may hold it, a set of headers for one: what stands under secret
/// keys anywhere in it replaced, its other texts as `redactSecrets` leaves them. Of an error, whose
/// texts are always searched, a plain one is made with the same domain and code. What nests deeper
/// than 256 levels is replaced as a whole; shared objects stay.
[[nodiscard]] Value withoutSecrets(const Value& value, SearchTexts texts = SearchTexts::kYes);
[[nodiscard]] Dictionary withoutSecrets(const Dictionary& entries);

/// `url` as logs may show it: without user name, password and fragment, its query as
/// `redactSecrets` leaves it. Need not be valid.
[[nodiscard]] std::string redactUrl(std::string_view url);

/// The same, and of its query only the names: "https://a/b?partNumber=&uploadId=". What stands
/// there without a name goes as well.
[[nodiscard]] std::string urlWithoutValues(std::string_view url);

}  // namespace varo::platform
