#pragma once

#include "Platform/Foundation/Error.h"
#include "Platform/Foundation/Result.h"
#include "Platform/Foundation/Value.h"

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace varo::binary {

/// A request template: a text with placeholders such as ${name}, and the helpers that turn template
/// dictionaries into URLs and headers. Values enter a text in their text form, without escaping:
/// where the text is JSON, fill it with `escapedForJson`.
/// Immutable after construction, so shared freely between threads.
class TemplateUtil {
 public:
  /// Parses `template_`. Any text is accepted; see `populateJSONTemplate`.
  explicit TemplateUtil(std::string template_);

  /// The text as it was given.
  [[nodiscard]] const std::string& template_() const noexcept { return text_; }
  /// The literal pieces: always one more than there are placeholders.
  [[nodiscard]] const std::vector<std::string>& formattedStrings() const noexcept {
    return formattedStrings_;
  }
  /// The placeholders' names, in the order of the text; a name that occurs twice is there twice.
  [[nodiscard]] const std::vector<std::string>& templateVariables() const noexcept {
    return templateVariables_;
  }

  /// The text with every placeholder filled. None, with the error `with` set unless it is null,
  /// when a placeholder has no value or is never closed: domain "Template Parsing Error", code
  /// 10003.
  [[nodiscard]] std::optional<std::string> populateJSONTemplate(const platform::Dictionary& values,
                                                                platform::ErrorPtr* with) const;

  /// The text with those placeholders filled that have a value. Never fails. It searches and
  /// replaces one value after the other, so a value may contain a placeholder that a later value
  /// fills.
  [[nodiscard]] std::string tryPopulateJSONTemplate(const platform::Dictionary& values) const;

  /// The values escaped for use inside a JSON string, so that none of them can end the string and
  /// add entries of its own. Values that are not UTF-8 stay as they are: they make the JSON invalid
  /// in any case.
  [[nodiscard]] static platform::Dictionary escapedForJson(const platform::Dictionary& values);

  /// The template's "domain" and "relativepath" in one; the domain "#middlewaredomain" (any letter
  /// case) stands for the options' own "domain". None without template, options or that domain.
  [[nodiscard]] static std::optional<std::string> endPointURLFrom(
      const std::optional<platform::Dictionary>& templateDictionary,
      const std::optional<platform::Dictionary>& andOptions);

  /// As `endPointURLFrom`, checked: an address whose "relativepath" leads to another scheme, host
  /// or port than its domain's is the error `kCodeMissingServerUrl`, with the address in its text.
  [[nodiscard]] static platform::Result<std::optional<std::string>> endPointAtItsDomain(
      const std::optional<platform::Dictionary>& templateDictionary,
      const std::optional<platform::Dictionary>& andOptions);

  /// `headers`, or none, with the authorization token of the options, if they hold one that is a
  /// non-empty text. It replaces a token in `headers`, whatever the letter case of its name.
  [[nodiscard]] static platform::Dictionary injectVaroAuthorizationInto(
      std::optional<platform::Dictionary> headers,
      const std::optional<platform::Dictionary>& fromOptions);

 private:
  void parseTemplate();

  const std::string text_;
  std::vector<std::string> formattedStrings_;
  std::vector<std::string> templateVariables_;
  /// Whether every placeholder is closed. One that is not is part of the literal before it.
  bool wellFormed_ = true;
};

}  // namespace varo::binary
