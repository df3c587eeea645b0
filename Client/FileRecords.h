#pragma once

#include "Platform/Foundation/Value.h"
#include "varo/files.h"
#include "varo/metadata.h"
#include "varo/outcome.h"

#include <optional>
#include <string>

namespace varo::detail {

/// None for what is no scalar: bytes, arrays, dictionaries, nothing.
[[nodiscard]] std::optional<Scalar> scalarFrom(const platform::Value& value);

/// `Kind::kInvalidArgument` for an id that cannot be used: it stands between quotes in what is
/// asked for.
[[nodiscard]] Outcome<void> checked(const FileId& id);

/// `Kind::kInvalidArgument` for metadata that has no JSON form: a number that is not finite, a text
/// that is not UTF-8. `about` names the operation.
[[nodiscard]] Outcome<void> checked(const platform::Dictionary& metadata, const std::string& about);

/// A record of the service. What is no scalar in it is left out.
[[nodiscard]] FileRecord recordFrom(const platform::Dictionary& record);

/// The same the other way.
[[nodiscard]] platform::Dictionary dictionaryFrom(const Metadata& metadata);

/// `filter` as the service reads it: "owner eq 'ann' and kind eq '3'". Empty for all files.
[[nodiscard]] std::string expressionFrom(const Filter& filter);

/// `filter` as criteria of a delete. Empty where two terms want different values of one entry: then
/// no file has both.
[[nodiscard]] platform::Dictionary criteriaFrom(const Filter& filter);

/// The entries of a record that say where the file is and what protects it, where they are given.
[[nodiscard]] platform::Dictionary metadataOf(const std::string& fileNamespace,
                                              const std::string& securityKey);

/// The first name of the filter that is none of an entry of metadata: letters, digits, underscores.
/// It stands in the expression as it is, so another one could ask for something else.
[[nodiscard]] std::optional<std::string> unusableNameIn(const Filter& filter);

}  // namespace varo::detail
