#pragma once

#include "Sandbox/Blobs/BlobObject.h"

#include <boost/json/object.hpp>

#include <string>
#include <variant>

namespace varo::sandbox {

/// `object` changed as the entries "size", "seed", "mode" ("known", "unknown", "whole", "base64",
/// "error"), "msg" and "logLevel" of `entries` say, or which of them is unknown or has a wrong
/// value. A size makes the content a generated one.
[[nodiscard]] std::variant<BlobObject, std::string> blobObjectFrom(
    const boost::json::object& entries, BlobObject object);

/// The entries that `blobObjectFrom` makes the same object of.
[[nodiscard]] boost::json::object entriesOf(const BlobObject& object);

}  // namespace varo::sandbox
