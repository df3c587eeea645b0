#pragma once

#include "Sandbox/Http/HttpRequest.h"
#include "Sandbox/Http/RequestBody.h"
#include "Sandbox/Storage/DiskStore.h"

#include <cstdint>
#include <optional>
#include <string>
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
