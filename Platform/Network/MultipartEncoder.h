#pragma once

#include "Platform/Foundation/Data.h"
#include "Platform/Foundation/Dictionary.h"
#include "Platform/Foundation/Result.h"

#include <functional>
#include <string>
#include <string_view>
#include <vector>

namespace varo::platform {

/// Key of a multipart description: its array of parts.
inline constexpr std::string_view kMultipartParts = "parts";
/// Key of a part's entry that is its content and not a header.
inline constexpr std::string_view kPartContent = "partContent";

/// An encoded multipart/form-data body (RFC 7578).
struct MultipartBody {
  /// The value of the Content-Type header that belongs to it.
  std::string contentType;
  /// The body, one after the other. Contents are the caller's, not copies.
  std::vector<Data> pieces;
};

/// A new boundary at each call: 70 characters at most, from the set that RFC 2046 needs no quotes
/// for.
using BoundarySource = std::function<std::string()>;

/// 32 random characters behind a fixed prefix.
[[nodiscard]] std::string randomBoundary();

/// Encodes a description (`RequestType::kMultipart`). Part headers keep their order.
///
/// Contents are not searched for the boundary: that it does not occur in them rests on its 128
/// random bits. Part headers are searched, and another boundary is taken where it occurs.
/// Errors: `kInvalidBody` for a description without parts, or a part without content or with two;
/// `kInvalidHeader` for a part header with CR, LF, NUL or another control character.
[[nodiscard]] Result<MultipartBody> encodeMultipart(
    const Dictionary& description, const BoundarySource& nextBoundary = randomBoundary);

}  // namespace varo::platform
