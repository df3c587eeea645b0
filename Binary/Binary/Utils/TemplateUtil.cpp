#include "Binary/Binary/Utils/TemplateUtil.h"

#include "Binary/Binary/SourceNames.h"
#include "Binary/Binary/Utils/CommonUtils.h"
#include "Binary/BinaryFileAdapterWithMetadata/Constants/BinaryConstants.h"
#include "Binary/BinaryFileAdapterWithMetadata/Constants/BinaryNetworkConstants.h"
#include "Binary/BinaryFileAdapterWithMetadata/Constants/ErrorConstants.h"
#include "Binary/BinaryFileAdapterWithMetadata/Utils/BinaryNetworkUtils.h"
#include "Platform/Foundation/Json.h"
#include "Platform/Foundation/Text.h"

#include <fmt/format.h>

#include <utility>

namespace varo::binary {
namespace {

constexpr std::string_view kFileParamNotProvided = "fileParam %@ is not provided";

std::string replaceAll(std::string_view text, std::string_view what, std::string_view with) {
  std::string result;
  std::size_t from = 0;
  for (std::size_t at = text.find(what); at != std::string_view::npos; at = text.find(what, from)) {
    result.append(text.substr(from, at - from)).append(with);
    from = at + what.size();
  }
  return result.append(text.substr(from));
}

/// JSON's null is no text.
std::string textOf(const Value& value) {
  return CommonUtils::isGiven(value) ? value.textValue() : std::string();
}

std::optional<std::string> domainOf(const std::optional<Dictionary>& templateDictionary,
                                    const std::optional<Dictionary>& options) {
  if (!templateDictionary || !options) return std::nullopt;
  Value domain = (*templateDictionary)[kTemplateParamDomain];
  if (platform::equalIgnoringCase(domain.textValue(), kMiddlewareDomain)) {
    domain = (*options)[kTemplateParamDomain];
  }
  if (!CommonUtils::isGiven(domain)) return std::nullopt;
  return domain.textValue();
}

std::nullopt_t fail(ErrorPtr* slot, std::string_view description) {
  if (slot != nullptr) {
    *slot = CommonUtils::generateErrorWith(kTemplateParsingErrorDomain, kInvalidFileParams,
                                           description);
  }
  return std::nullopt;
}

}  // namespace

TemplateUtil::TemplateUtil(std::string template_) : text_(std::move(template_)) { parseTemplate(); }

void TemplateUtil::parseTemplate() {
  std::string_view rest = text_;
  std::size_t start = rest.find(kTemplateStart);
  formattedStrings_.emplace_back(rest.substr(0, start));
  while (start != std::string_view::npos) {
    rest.remove_prefix(start + kTemplateStart.size());
    start = rest.find(kTemplateStart);
    const std::string_view piece = rest.substr(0, start);
    const std::size_t end = piece.find(kTemplateEnd);
    if (end == std::string_view::npos) {
      wellFormed_ = false;
      formattedStrings_.back().append(kTemplateStart).append(piece);
      continue;
    }
    // A second "}" ends the literal: what follows it is dropped, as the service expects.
    const std::string_view literal = piece.substr(end + kTemplateEnd.size());
    templateVariables_.emplace_back(piece.substr(0, end));
    formattedStrings_.emplace_back(literal.substr(0, literal.find(kTemplateEnd)));
  }
}

std::optional<std::string> TemplateUtil::populateJSONTemplate(const Dictionary& values,
                                                              ErrorPtr* with) const {
  if (!wellFormed_) return fail(with, kmsgtemplateParsing);
  std::string result = formattedStrings_.front();
  for (std::size_t i = 0; i < templateVariables_.size(); ++i) {
    const Value* value = values.find(templateVariables_[i]);
    if (value == nullptr) {
      return fail(with, platform::formatMessage(kFileParamNotProvided, {templateVariables_[i]}));
    }
    result.append(value->textValue()).append(formattedStrings_[i + 1]);
  }
  return result;
}

std::string TemplateUtil::tryPopulateJSONTemplate(const Dictionary& values) const {
  std::string result;
  for (const auto& entry : values) {
    const std::string placeholder = fmt::format("{}{}{}", kTemplateStart, entry.key, kTemplateEnd);
    if (text_.find(placeholder) == std::string::npos) continue;
    result = replaceAll(result.empty() ? text_ : result, placeholder, entry.value.textValue());
  }
  return result.empty() ? text_ : result;
}

Dictionary TemplateUtil::escapedForJson(const Dictionary& values) {
  Dictionary escaped;
  for (const auto& entry : values) {
    const std::string text = entry.value.textValue();
    const auto quoted = platform::json::serialize(text);
    escaped.set(entry.key, quoted ? quoted->substr(1, quoted->size() - 2) : text);
  }
  return escaped;
}

std::optional<std::string> TemplateUtil::endPointURLFrom(
    const std::optional<Dictionary>& templateDictionary,
    const std::optional<Dictionary>& andOptions) {
  const auto domain = domainOf(templateDictionary, andOptions);
  if (!domain) return std::nullopt;
  return *domain + textOf((*templateDictionary)[kTemplateParamRelativePath]);
}

Result<std::optional<std::string>> TemplateUtil::endPointAtItsDomain(
    const std::optional<Dictionary>& templateDictionary,
    const std::optional<Dictionary>& andOptions) {
  const auto domain = domainOf(templateDictionary, andOptions);
  if (!domain) return std::optional<std::string>();
  auto address = BinaryNetworkUtils::addressAtServer(
      *endPointURLFrom(templateDictionary, andOptions), *domain);
  if (!address) return address.error();
  return std::optional(std::move(address).value());
}

Dictionary TemplateUtil::injectVaroAuthorizationInto(std::optional<Dictionary> headers,
                                                     const std::optional<Dictionary>& fromOptions) {
  Dictionary result = std::move(headers).value_or(Dictionary{});
  if (!fromOptions) return result;
  const std::string* token = (*fromOptions)[kVaroAuthorization].text();
  if (token != nullptr && !token->empty()) {
    BinaryNetworkUtils::setHeader(result, kVaroAuthorization, *token);
  }
  return result;
}

}  // namespace varo::binary
