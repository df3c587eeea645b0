#include "Platform/Foundation/Redaction.h"

#include "Platform/Foundation/Array.h"
#include "Platform/Foundation/Error.h"
#include "Platform/Foundation/Text.h"
#include "Platform/Foundation/Value.h"

#include <algorithm>
#include <array>
#include <memory>
#include <optional>
#include <vector>

namespace varo::platform {
namespace {

/// Headers whose whole line is the secret.
constexpr std::array<std::string_view, 8> kSecretHeaders = {
    "authorization", "proxy-authorization", "x-pelmar-authorization", "cookie",
    "set-cookie",    "set-cookie2",         "x-amz-security-token",   "x-api-key",
};

constexpr std::array<std::string_view, 20> kSecretKeys = {
    "secretaccesskey", "accesskeyid",      "awsaccesskeyid",
    "x-amz-signature", "x-amz-credential", "credential",
    "signature",       "x-goog-signature", "sig",
    "security_key",    "securitykey",      "id_token",
    "api_key",         "apikey",           "session_id",
    "sessionid",       "jsessionid",       "varosyncsessionid",
    "phpsessid",       "passwd",
};

/// Keys that end so are secrets too: "access_token", "sessionToken", "client_secret".
constexpr std::array<std::string_view, 3> kSecretEndings = {"token", "secret", "password"};

/// Words before a credential that are none themselves.
constexpr std::array<std::string_view, 4> kSchemes = {"bearer", "basic", "digest", "token"};

/// Shorter values are not searched for in a text: they may be parts of words.
constexpr std::size_t kShortestSearched = 4;
/// No word of a sentence is longer.
constexpr std::size_t kLongestWord = 20;

constexpr std::string_view kLineEnds = "\r\n";
/// What ends an unquoted value.
constexpr std::string_view kValueEnds = " \t\r\n&,}]\"<>";

template <std::size_t Size>
bool isIn(const std::array<std::string_view, Size>& words, std::string_view word) noexcept {
  return std::any_of(words.begin(), words.end(),
                     [word](std::string_view other) { return equalIgnoringCase(word, other); });
}

bool startsWithIgnoringCase(std::string_view text, std::string_view start) noexcept {
  return equalIgnoringCase(text.substr(0, start.size()), start);
}

constexpr bool isLower(char c) { return c >= 'a' && c <= 'z'; }
constexpr bool isLetter(char c) { return isLower(c) || (c >= 'A' && c <= 'Z'); }
constexpr bool isKeyCharacter(char c) {
  return isLetter(c) || (c >= '0' && c <= '9') || c == '-' || c == '_';
}

std::size_t endOf(std::string_view text, std::string_view ends) {
  return std::min(text.find_first_of(ends), text.size());
}

std::size_t skipBlanks(std::string_view text, std::size_t start) {
  return std::min(text.find_first_not_of(' ', start), text.size());
}

bool isPercentEncoded(std::string_view text) {
  return text.size() >= 3 && text.front() == '%' &&
         text.substr(1, 2).find_first_not_of("0123456789abcdefABCDEF") == std::string_view::npos;
}

/// The length of a quote at the start of `text`, with the backslashes before it where the text is
/// itself quoted, or 0.
std::size_t quoteLength(std::string_view text) {
  const std::size_t quote = std::min(text.find_first_not_of('\\'), text.size());
  return quote < text.size() && (text[quote] == '"' || text[quote] == '\'') ? quote + 1 : 0;
}

/// The length of a quoted text whose quote, with its backslashes, has `opening` characters.
std::size_t quotedLength(std::string_view text, std::size_t opening) {
  const char quote = text[opening - 1];
  std::size_t backslashes = 0;
  for (std::size_t i = opening; i < text.size(); ++i) {
    // No more backslashes than at the start, or an even number, which belong to the text.
    if (text[i] == quote && (backslashes < opening || backslashes % 2 == 0)) return i + 1;
    backslashes = text[i] == '\\' ? backslashes + 1 : 0;
  }
  return text.size();
}

/// The length of an array or object of JSON, up to the bracket that ends it.
std::size_t bracketedLength(std::string_view text) {
  std::size_t depth = 0;
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (const std::size_t quote = quoteLength(text.substr(i)); quote != 0) {
      i += quotedLength(text.substr(i), quote) - 1;
    } else if (text[i] == '\\') {
      i = std::min(text.find_first_not_of('\\', i), text.size()) - 1;
    } else if (text[i] == '[' || text[i] == '{') {
      ++depth;
    } else if ((text[i] == ']' || text[i] == '}') && --depth == 0) {
      return i + 1;
    }
  }
  return text.size();
}

/// The length of the blanks at the start of a text, which may be percent-encoded.
std::size_t encodedBlanksLength(std::string_view text) {
  std::size_t i = 0;
  while (i < text.size()) {
    if (text[i] == ' ' || text[i] == '+') {
      ++i;
    } else if (text.substr(i).starts_with("%20")) {
      i += 3;
    } else {
      break;
    }
  }
  return i;
}

/// The length of a filter's ` eq ` or ` ne `, or 0.
std::size_t comparisonLength(std::string_view text) {
  const std::size_t before = encodedBlanksLength(text);
  const std::string_view word = text.substr(before, 2);
  if (before == 0 || !(equalIgnoringCase(word, "eq") || equalIgnoringCase(word, "ne"))) return 0;
  const std::size_t after = encodedBlanksLength(text.substr(before + 2));
  return after != 0 ? before + 2 + after : 0;
}

/// The length of what a filter compares with. A quote inside of the text need not be doubled, so
/// only one with which the operand may end counts.
std::size_t operandLength(std::string_view text) {
  const std::string_view quote = text.starts_with('\'')    ? "'"
                                 : text.starts_with("%27") ? "%27"
                                                           : "";
  if (quote.empty()) return std::min(endOf(text, " \t\r\n&)"), text.find('%'));
  for (std::size_t i = text.find(quote, quote.size()); i != std::string_view::npos;
       i = text.find(quote, i + 1)) {
    const std::string_view rest = text.substr(i + quote.size());
    const bool ends = rest.empty() || kValueEnds.find(rest.front()) != std::string_view::npos ||
                      rest.front() == ')' || rest.front() == '+' || rest.front() == '\\' ||
                      rest.starts_with("%20") || rest.starts_with("%29");
    if (ends) return i + quote.size();
  }
  return text.size();
}

/// Whether this may be a word of a sentence rather than a key, a token or a number.
bool isPlainWord(std::string_view word) {
  while (!word.empty() && std::string_view(".;:!?)'").find(word.back()) != std::string_view::npos) {
    word.remove_suffix(1);
  }
  if (word.empty() || word.size() > kLongestWord) return false;
  for (std::size_t i = 0; i < word.size(); ++i) {
    if (!isLetter(word[i]) && word[i] != '\'' && word[i] != '-') return false;
    if (i > 0 && isLower(word[i - 1]) && isLetter(word[i]) && !isLower(word[i])) return false;
  }
  return true;
}

/// The length of an unquoted value, with the scheme before it.
std::size_t unquotedLength(std::string_view text, std::string_view ends = kValueEnds) {
  const std::size_t length = endOf(text, ends);
  if (!isIn(kSchemes, text.substr(0, length))) return length;
  const std::size_t credential = skipBlanks(text, length);
  return credential > length ? credential + endOf(text.substr(credential), ends) : length;
}

/// Whether what follows `before` begins a line, an entry or an element.
bool beginsField(std::string_view before) {
  const std::size_t last = before.find_last_not_of(" \t");
  return last == std::string_view::npos ||
         std::string_view("\r\n{[(,;&?").find(before[last]) != std::string_view::npos;
}

/// The length of the secret in `text`, which follows "`key`: " without a quote; 0 where a sentence
/// goes on there ("Invalid token: it expired at noon").
std::size_t lengthBehindColon(std::string_view before, std::string_view key,
                              std::string_view text) {
  const std::size_t length = endOf(text, kValueEnds);
  const std::string_view first = text.substr(0, length);
  const bool isField = beginsField(before);
  const bool mayBeWord = isPlainWord(first) && !isIn(kSchemes, first);
  if (isIn(kSecretHeaders, key)) {
    return isField || !mayBeWord ? endOf(text, isField ? kLineEnds : "\r\n\"") : 0;
  }
  if (!mayBeWord) return unquotedLength(text);
  const bool endsField = length == text.size() || (text[length] != ' ' && text[length] != '\t');
  return isField && endsField ? length : 0;
}

/// The place of a secret in a text.
struct Secret {
  std::size_t start;
  std::size_t length;
};

/// The value behind the secret key that stands from `start` to `end`.
std::optional<Secret> secretBehind(std::string_view text, std::size_t start, std::size_t end) {
  const std::string_view rest = text.substr(end);
  const std::size_t closingQuote = quoteLength(rest);
  const std::size_t sign = skipBlanks(rest, closingQuote);
  const char separator = sign < rest.size() ? rest[sign] : '\0';
  if (separator == ':' || separator == '=') {
    const std::size_t at = end + skipBlanks(rest, sign + 1);
    const std::string_view value = text.substr(at);
    if (const std::size_t quote = quoteLength(value); quote != 0) {
      return Secret{at, quotedLength(value, quote)};
    }
    if (value.starts_with('[') || value.starts_with('{')) return Secret{at, bracketedLength(value)};
    const bool isSentence = separator == ':' && closingQuote == 0;
    return Secret{at, isSentence ? lengthBehindColon(text.substr(0, start),
                                                     text.substr(start, end - start), value)
                                 : unquotedLength(value)};
  }
  for (const std::string_view encoded : {"%3d", "%253d"}) {
    if (!startsWithIgnoringCase(rest, encoded)) continue;
    const std::size_t at = end + encoded.size();
    const std::string_view value = text.substr(at);
    return Secret{at, std::min(unquotedLength(value), value.find("%26"))};
  }
  if (const std::size_t comparison = comparisonLength(rest); comparison != 0) {
    return Secret{end + comparison, operandLength(text.substr(end + comparison))};
  }
  return std::nullopt;
}

/// The length of "user:password@" behind the "://" at the start of `text`, or 0.
std::size_t userInfoLength(std::string_view text) {
  constexpr std::string_view kAuthority = "://";
  if (!text.starts_with(kAuthority)) return 0;
  const std::string_view rest = text.substr(kAuthority.size());
  const std::size_t at = rest.substr(0, endOf(rest, "/?# \t\r\n\"'<>")).rfind('@');
  return at == std::string_view::npos ? 0 : at + 1;
}

/// The texts under secret keys anywhere in `value`.
void collectSecrets(const Value& value, bool isSecret, std::vector<std::string>& secrets) {
  if (const Dictionary* entries = value.dictionary()) {
    for (const auto& entry : *entries) {
      collectSecrets(entry.value, isSecret || isSecretKey(entry.key), secrets);
    }
  } else if (const Array* elements = value.array()) {
    for (const Value& element : *elements) collectSecrets(element, isSecret, secrets);
  } else if (const std::string* text = isSecret ? value.text() : nullptr) {
    std::string_view secret = *text;
    const std::size_t blank = secret.find(' ');
    if (blank != std::string_view::npos && isIn(kSchemes, secret.substr(0, blank))) {
      secret.remove_prefix(blank + 1);
    }
    if (secret.size() >= kShortestSearched) secrets.emplace_back(secret);
  }
}

constexpr std::size_t kDeepest = 256;

Value cleaned(const Value& value, SearchTexts texts, std::size_t depth);

Dictionary cleaned(const Dictionary& entries, SearchTexts texts, std::size_t depth) {
  Dictionary result;
  for (const auto& entry : entries) {
    const bool isSecret = isSecretKey(entry.key);
    result.set(entry.key, isSecret ? Value(kRedacted) : cleaned(entry.value, texts, depth));
  }
  return result;
}

Value cleaned(const Value& value, SearchTexts texts, std::size_t depth) {
  if (const std::string* text = value.text()) {
    return texts == SearchTexts::kYes ? Value(redactSecrets(*text)) : value;
  }
  const Dictionary* entries = value.dictionary();
  const Array* elements = value.array();
  const ErrorPtr error = value.error();
  if (entries == nullptr && elements == nullptr && error == nullptr) return value;
  if (depth == kDeepest) return kRedacted;
  if (entries != nullptr) return cleaned(*entries, texts, depth + 1);
  if (error != nullptr) {
    return ErrorPtr(std::make_shared<const Error>(
        error->domain(), error->code(), cleaned(error->userInfo(), SearchTexts::kYes, depth + 1)));
  }
  Array result;
  for (const Value& element : *elements) result.append(cleaned(element, texts, depth + 1));
  return result;
}

std::string replaceAll(std::string_view text, std::string_view part) {
  std::string result;
  std::size_t start = 0;
  for (std::size_t i = text.find(part); i != std::string_view::npos; i = text.find(part, start)) {
    result.append(text.substr(start, i - start)).append(kRedacted);
    start = i + part.size();
  }
  return result.append(text.substr(start));
}

}  // namespace

bool isSecretKey(std::string_view key) noexcept {
  return isIn(kSecretHeaders, key) || isIn(kSecretKeys, key) ||
         std::any_of(kSecretEndings.begin(), kSecretEndings.end(), [key](std::string_view ending) {
           return key.size() >= ending.size() &&
                  equalIgnoringCase(key.substr(key.size() - ending.size()), ending);
         });
}

std::string redactSecrets(std::string_view text) {
  std::string result;
  result.reserve(text.size());
  std::size_t i = 0;
  while (i < text.size()) {
    std::size_t end = i;
    while (end < text.size() && isKeyCharacter(text[end])) ++end;
    if (end == i) {
      // A percent-encoded character before a key is no part of it.
      const std::size_t length = isPercentEncoded(text.substr(i)) ? 3 : 1;
      if (const std::size_t userInfo = userInfoLength(text.substr(i)); userInfo != 0) {
        result += "://";
        i += 3 + userInfo;
        continue;
      }
      result += text.substr(i, length);
      i += length;
      continue;
    }
    const std::string_view word = text.substr(i, end - i);
    result += word;
    const auto secret = isSecretKey(word) ? secretBehind(text, i, end) : std::nullopt;
    i = end;
    if (!secret || secret->length == 0) continue;
    result += text.substr(i, secret->start - i);
    result += kRedacted;
    i = secret->start + secret->length;
  }
  return result;
}

std::string redactSecrets(std::string_view text, const Dictionary& sent) {
  std::vector<std::string> secrets;
  collectSecrets(sent, false, secrets);
  std::string result = redactSecrets(text);
  for (const std::string& secret : secrets) result = replaceAll(result, secret);
  return result;
}

Value withoutSecrets(const Value& value, SearchTexts texts) { return cleaned(value, texts, 0); }

Dictionary withoutSecrets(const Dictionary& entries) {
  return cleaned(entries, SearchTexts::kYes, 0);
}

std::string redactUrl(std::string_view url) {
  const std::size_t scheme = url.find("://");
  const std::size_t start = scheme == std::string_view::npos ? 0 : scheme + 3;
  const std::size_t end = std::min(url.find_first_of("/?", start), url.size());
  // A password may have "@" and "#" in it, wherever that leads.
  const std::size_t at = url.substr(start, end - start).rfind('@');
  std::string result(url.substr(0, start));
  result += url.substr(at == std::string_view::npos ? start : start + at + 1);
  return redactSecrets(result.substr(0, result.find('#')));
}

std::string urlWithoutValues(std::string_view url) {
  const std::size_t query = url.find_first_of("?#");
  std::string result = redactUrl(url.substr(0, query));
  if (query == std::string_view::npos || url[query] == '#') return result;
  std::string_view left = url.substr(query + 1);
  left = left.substr(0, left.find('#'));
  for (char separator = '?'; !left.empty();) {
    const std::string_view parameter = left.substr(0, left.find('&'));
    left.remove_prefix(std::min(parameter.size() + 1, left.size()));
    const std::size_t name = parameter.find('=');
    if (name == std::string_view::npos) continue;
    result += std::exchange(separator, '&');
    result += parameter.substr(0, name + 1);
  }
  return result;
}

}  // namespace varo::platform
