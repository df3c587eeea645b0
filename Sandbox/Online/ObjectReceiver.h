#pragma once

#include "Sandbox/Online/FormReceiver.h"
#include "Sandbox/Storage/DiskStore.h"

#include <string>
#include <variant>
#include <vector>

namespace varo::sandbox {

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
