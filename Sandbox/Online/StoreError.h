#pragma once

#include "Sandbox/Http/HttpResponse.h"

#include <string>

namespace varo::sandbox {

/// A refusal in the manner of object stores.
struct StoreError {
  int status = 403;
  std::string code;     ///< A name for programs, such as "AccessDenied".
  std::string message;  ///< A sentence.
  FieldList details{};  ///< Further elements of the response.
};

/// `<Error>` with "Code", "Message", the details and the request's path as "Resource".
[[nodiscard]] HttpResponse xmlResponse(const StoreError& error, const HttpRequest& request);

}  // namespace varo::sandbox
