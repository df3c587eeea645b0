#pragma once

#include "Sandbox/Http/HttpResponse.h"
#include "Sandbox/Storage/DiskStore.h"

#include <string>
#include <string_view>

namespace varo::sandbox {

/// Names a request in every response of the stores.
inline constexpr std::string_view kRequestIdHeader = "x-amz-request-id";

/// A refusal in the manner of object stores.
struct StoreError {
  int status = 403;
  std::string code;     ///< A name for programs, such as "AccessDenied".
  std::string message;  ///< A sentence.
  FieldList details{};  ///< Further elements of the response.
};

/// Why a write failed, in the manner of object stores.
[[nodiscard]] StoreError storeErrorOf(const WriteProblem& problem);

/// `<Error>` with "Code", "Message", the details and the request's path as "Resource".
/// Its "RequestId" is the header's.
[[nodiscard]] HttpResponse xmlResponse(const StoreError& error, const HttpRequest& request);

}  // namespace varo::sandbox
