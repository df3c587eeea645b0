#pragma once

#include "Sandbox/Http/HttpResponse.h"
#include "Sandbox/Http/RequestBody.h"

#include <functional>
#include <string>
#include <string_view>
#include <vector>

namespace varo::sandbox {

/// Finds the handler of a request by method and path. Filled before the first request, constant
/// afterwards.
class Router {
 public:
  using Handler = std::function<HttpResponse(const HttpRequest& request, RequestBody& body)>;

  /// `pattern` is a path whose segments "*" stand for one segment each, and whose last segment may
  /// be "**" for all that is left; what they matched becomes the request's path arguments. A route
  /// for GET serves HEAD, too.
  void add(std::string_view method, std::string_view pattern, Handler handler);

  /// Runs the handler; 404 for an unknown path, 405 for a method that the path does not have.
  [[nodiscard]] HttpResponse route(HttpRequest& request, RequestBody& body) const;

 private:
  struct Route {
    std::string method;
    std::vector<std::string> segments;
    Handler handler;
  };
  std::vector<Route> routes_;
};

}  // namespace varo::sandbox
