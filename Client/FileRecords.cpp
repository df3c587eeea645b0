#include "Client/FileRecords.h"

#include "Binary/BinaryFileAdapterWithMetadata/Constants/BinaryConstants.h"
#include "Client/Failures.h"
#include "Platform/Foundation/Error.h"
#include "Platform/Foundation/Json.h"
#include "Platform/Foundation/Text.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstdint>
#include <optional>
#include <string_view>
#include <type_traits>
#include <utility>

namespace varo::detail {

using platform::Dictionary;
using platform::Value;

namespace {

constexpr std::string_view kFileSize = "file_size";

Value valueFrom(const Scalar& scalar) {
  return std::visit([](const auto& value) { return Value(value); }, scalar);
}

/// A text for a filter's quotes: a quote in it is doubled.
std::string quotable(const Scalar& scalar) {
  std::string quoted;
  for (const char character : valueFrom(scalar).textValue()) {
    if (character == '\'') quoted += '\'';
    quoted += character;
  }
  return quoted;
}

std::optional<Bytes> sizeFrom(const Value& value) {
  const std::int64_t* number = value.integer();
  const auto size = number != nullptr ? std::optional(*number)
                    : value.isText()  ? platform::parseInteger(*value.text())
                                      : std::nullopt;
  if (!size || *size < 0) return std::nullopt;
  return Bytes(static_cast<std::uint64_t>(*size));
}

}  // namespace

std::optional<Scalar> scalarFrom(const Value& value) {
  if (const bool* flag = value.boolean()) return *flag;
  if (const std::int64_t* number = value.integer()) return *number;
  if (const double* number = value.real()) return *number;
  if (const std::string* text = value.text()) return *text;
  // All its digits, which no number keeps.
  if (const std::string* digits = value.largeInteger()) return *digits;
  return std::nullopt;
}

Outcome<void> checked(const FileId& id) {
  if (id.empty()) return failureOf(Kind::kInvalidArgument, "The file id is empty");
  if (id.text().find('\'') != std::string::npos) {
    return failureOf(Kind::kInvalidArgument,
                     fmt::format("The file id has a quote in it: {}", id.text()));
  }
  return {};
}

Outcome<void> checked(const Dictionary& metadata, const std::string& about) {
  // Before anything is sent: the classes below report it and send the request without a body.
  const auto form = platform::json::serialize(metadata);
  if (form) return {};
  return failureOf(Kind::kInvalidArgument, fmt::format("{}: the metadata: {}", about,
                                                       form.error()->localizedDescription()));
}

FileRecord recordFrom(const Dictionary& record) {
  FileRecord result;
  result.id = FileId(record[binary::keys::kFileId].textValue());
  result.name = record[binary::keys::kFileName].textValue();
  result.size = sizeFrom(record[kFileSize]);
  for (const auto& entry : record) {
    if (auto scalar = scalarFrom(entry.value))
      result.metadata.emplace(entry.key, *std::move(scalar));
  }
  return result;
}

Dictionary dictionaryFrom(const Metadata& metadata) {
  Dictionary result;
  for (const auto& [name, value] : metadata) result.set(name, valueFrom(value));
  return result;
}

Dictionary metadataOf(const std::string& fileNamespace, const std::string& securityKey) {
  Dictionary metadata;
  if (!fileNamespace.empty()) metadata.set(binary::keys::kFileNamespace, fileNamespace);
  if (!securityKey.empty()) metadata.set(binary::keys::kSecurityKey, securityKey);
  return metadata;
}

std::string expressionFrom(const Filter& filter) {
  std::string expression;
  for (const auto& [name, value] : filter.terms()) {
    if (!expression.empty()) expression += " and ";
    expression.append(name).append(" eq '").append(quotable(value)).append("'");
  }
  return expression;
}

Dictionary criteriaFrom(const Filter& filter) {
  Dictionary criteria;
  for (const auto& [name, value] : filter.terms()) {
    // The classes below put the quotes around it.
    const Value quoted = quotable(value);
    if (const Value* other = criteria.find(name); other != nullptr && *other != quoted) return {};
    criteria.set(name, quoted);
  }
  return criteria;
}

std::optional<std::string> unusableNameIn(const Filter& filter) {
  const auto isPartOfName = [](char character) {
    return (character >= 'a' && character <= 'z') || (character >= 'A' && character <= 'Z') ||
           (character >= '0' && character <= '9') || character == '_';
  };
  for (const auto& [name, value] : filter.terms()) {
    if (name.empty() || !std::all_of(name.begin(), name.end(), isPartOfName)) return name;
  }
  return std::nullopt;
}

}  // namespace varo::detail
