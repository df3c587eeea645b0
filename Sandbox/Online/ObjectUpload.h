#pragma once

#include "Sandbox/Http/HttpRequest.h"
#include "Sandbox/Http/RequestBody.h"
#include "Sandbox/Storage/DiskStore.h"
#include "Sandbox/Storage/DiskWriter.h"

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

namespace varo::sandbox {

/// One part of a form, as it came.
struct FormPart {
  std::string name;
  std::optional<std::string> fileName;  ///< Of a part that holds a file.
  std::string text{};                   ///< Of another one.
  std::uint64_t size = 0;
};

/// Takes the parts of a multipart/form-data body. The first file goes into `writer`, further ones
/// are counted, all else is kept as text. Nothing more of a file is held than the piece on its way.
/// `writer` is not finished.
[[nodiscard]] std::variant<std::vector<FormPart>, WriteProblem> receiveForm(
    const HttpRequest& request, RequestBody& body, DiskWriter& writer);

/// An object that is stored now.
struct ReceivedObject {
  StoredBytes state;
  std::vector<FormPart> parts{};  ///< Of the form that it came in.
};

/// Replaces what is under `key` by the body of a PUT, or by the file in the form of a POST. An
/// object is there when it is complete; until then, or after a problem, the one before stays.
[[nodiscard]] std::variant<ReceivedObject, WriteProblem> receiveObject(const HttpRequest& request,
                                                                       RequestBody& body,
                                                                       DiskStore& objects,
                                                                       const std::string& key);

}  // namespace varo::sandbox
