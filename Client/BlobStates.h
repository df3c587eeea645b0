#pragma once

#include "Platform/Foundation/Error.h"
#include "Platform/Foundation/Value.h"
#include "varo/blobs.h"

#include <string>
#include <string_view>

namespace varo::detail {

/// What a row of the table of blobs says. `ref` names the record, where that is known; else table
/// and column are those in the row.
[[nodiscard]] BlobState stateFrom(const platform::Dictionary& row, BlobRef ref = {});
/// Of a record that is linked to no blob.
[[nodiscard]] BlobState notFetched(BlobRef ref);

/// 'photo of employees (id = 7)', for messages.
[[nodiscard]] std::string describe(const BlobRef& blob);
/// A text that two references share only where they are equal.
[[nodiscard]] std::string identityOf(const BlobRef& blob);

/// None, or what is missing in it.
[[nodiscard]] Outcome<void> check(const BlobRef& blob, std::string_view about);

/// The failure of a statement: `kDatabase`, unless the disk is full or a name or value impossible.
[[nodiscard]] Failure databaseFailure(const platform::ErrorPtr& error, std::string_view about);

}  // namespace varo::detail
