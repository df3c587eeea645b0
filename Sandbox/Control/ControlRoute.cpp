#include "Sandbox/Control/ControlRoute.h"

#include "Sandbox/ServiceProtocol.h"

#include <fmt/format.h>

#include <utility>

namespace varo::sandbox {

void addControlRoute(Router& router, std::string_view method, std::string_view pattern,
                     Router::Handler handler) {
  router.add(method, fmt::format("{}{}", kControlPath, pattern),
             [handler = std::move(handler)](const HttpRequest& request, RequestBody& body) {
               // With --listen others may reach the sandbox. They may use it, but not break it on
               // purpose.
               if (request.fromLoopback) return handler(request, body);
               return errorResponse(kForbidden, "only for clients on this machine", 403);
             });
}

}  // namespace varo::sandbox
