#include "Cli/Terminal/TerminalText.h"

#include "Platform/Foundation/Text.h"

#include <algorithm>
#include <clocale>
#include <cwchar>
#include <locale.h>
#include <vector>

namespace varo::cli {

namespace {

constexpr std::string_view kEllipsis = "\u2026";
constexpr std::string_view kReplacement = "\uFFFD";

/// Makes a UTF-8 locale the thread's while it lives: `wcwidth` knows no characters in the plain
/// one.
class Utf8Scope {
 public:
  Utf8Scope() : before_(::uselocale(utf8())) {}
  ~Utf8Scope() { ::uselocale(before_); }
  Utf8Scope(const Utf8Scope&) = delete;
  Utf8Scope& operator=(const Utf8Scope&) = delete;

 private:
  static locale_t utf8() {
    static const locale_t locale = ::newlocale(LC_CTYPE_MASK, "C.UTF-8", nullptr);
    return locale;
  }
  locale_t before_;
};

struct Character {
  std::string_view bytes;
  char32_t codePoint = 0;
};

/// The first character of `text`, which is not empty and is UTF-8.
Character firstCharacter(std::string_view text) {
  const auto lead = static_cast<unsigned char>(text.front());
  const std::size_t length = lead < 0x80 ? 1 : lead < 0xE0 ? 2 : lead < 0xF0 ? 3 : 4;
  Character result{text.substr(0, length), 0};
  result.codePoint = length == 1 ? lead : lead & (0xFFU >> (length + 1));
  for (const char byte : result.bytes.substr(1)) {
    result.codePoint = (result.codePoint << 6U) | (static_cast<unsigned char>(byte) & 0x3FU);
  }
  return result;
}

std::vector<Character> charactersOf(std::string_view text) {
  std::vector<Character> characters;
  while (!text.empty()) {
    characters.push_back(firstCharacter(text));
    text.remove_prefix(characters.back().bytes.size());
  }
  return characters;
}

/// C0, C1, delete, and the marks that reorder or hide what stands around them.
bool isControl(char32_t c) {
  const bool control = c < 0x20 || (c >= 0x7F && c < 0xA0);
  const bool direction = (c >= 0x200B && c <= 0x200F) || (c >= 0x2028 && c <= 0x202E) ||
                         (c >= 0x2060 && c <= 0x206F) || c == 0xFEFF;
  return control || direction;
}

/// Most text: one column a byte, and nothing to make safe.
bool isPlain(std::string_view text) {
  return std::all_of(text.begin(), text.end(), [](char c) { return c >= 0x20 && c < 0x7F; });
}

std::size_t widthOf(const Character& character) {
  const int width = ::wcwidth(static_cast<wchar_t>(character.codePoint));
  return width < 0 ? 1 : static_cast<std::size_t>(width);
}

/// The longest prefix that fits into `width` columns.
std::string prefixOfWidth(const std::vector<Character>& characters, std::size_t width) {
  std::string prefix;
  std::size_t used = 0;
  for (const Character& character : characters) {
    used += widthOf(character);
    if (used > width) break;
    prefix += character.bytes;
  }
  return prefix;
}

std::string cut(std::string_view text, std::size_t width, std::size_t atEnd) {
  std::string safe = printable(text);
  if (displayWidth(safe) <= width) return safe;
  if (width == 0) return {};
  // The thread's locale only: the process keeps the plain one, in which scripts expect numbers.
  const Utf8Scope scope;
  std::vector<Character> characters = charactersOf(safe);
  std::string result = prefixOfWidth(characters, width - 1 - atEnd);
  result += kEllipsis;
  // The end is a prefix of the reversed text, reversed.
  std::vector<Character> end;
  std::size_t used = 0;
  for (auto it = characters.rbegin(); it != characters.rend(); ++it) {
    used += widthOf(*it);
    if (used > atEnd) break;
    end.push_back(*it);
  }
  std::for_each(end.rbegin(), end.rend(), [&](const Character& c) { result += c.bytes; });
  return result;
}

}  // namespace

std::string printable(std::string_view text) {
  if (isPlain(text)) return std::string(text);
  const std::string valid = platform::sanitizeUtf8(text);
  std::string safe;
  safe.reserve(valid.size());
  for (const Character& character : charactersOf(valid)) {
    // Names come from a service. An escape in one could rewrite the
    // screen, or what the next line says.
    safe += isControl(character.codePoint) ? kReplacement : character.bytes;
  }
  return safe;
}

std::size_t displayWidth(std::string_view text) {
  if (isPlain(text)) return text.size();
  const std::string valid = platform::sanitizeUtf8(text);
  const Utf8Scope scope;
  std::size_t width = 0;
  for (const Character& character : charactersOf(valid)) width += widthOf(character);
  return width;
}

std::string cutToWidth(std::string_view text, std::size_t width) { return cut(text, width, 0); }

std::string cutMiddleToWidth(std::string_view text, std::size_t width) {
  return cut(text, width, width > 0 ? (width - 1) / 2 : 0);
}

}  // namespace varo::cli
