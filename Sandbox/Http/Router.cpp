#include "Sandbox/Http/Router.h"

#include "Sandbox/ServiceProtocol.h"

#include <fmt/format.h>

#include <optional>
#include <utility>

namespace varo::sandbox {
namespace {

std::vector<std::string> segmentsOf(std::string_view path) {
  std::vector<std::string> segments;
  while (!path.empty()) {
    // A slash at the end makes one more, empty segment: "/objects/" is an object without a name,
    // which its handler refuses by a sentence of its own.
    if (path.front() == '/') path.remove_prefix(1);
    const std::string_view segment = path.substr(0, path.find('/'));
    segments.emplace_back(segment);
    path.remove_prefix(segment.size());
  }
  return segments;
}

std::optional<std::vector<std::string>> match(const std::vector<std::string>& pattern,
                                              const std::vector<std::string>& path) {
  const bool takesRest = pattern.back() == "**";
  if (takesRest ? path.size() < pattern.size() : path.size() != pattern.size()) return std::nullopt;
  std::vector<std::string> arguments;
  for (std::size_t i = 0; i < pattern.size(); ++i) {
    if (pattern[i] == "**") {
      const auto rest = path.begin() + static_cast<std::ptrdiff_t>(i);
      arguments.push_back(fmt::format("{}", fmt::join(rest, path.end(), "/")));
    } else if (pattern[i] == "*") {
      arguments.push_back(path[i]);
    } else if (pattern[i] != path[i]) {
      return std::nullopt;
    }
  }
  return arguments;
}

}  // namespace

void Router::add(std::string_view method, std::string_view pattern, Handler handler) {
  routes_.push_back({std::string(method), segmentsOf(pattern), std::move(handler)});
}

HttpResponse Router::route(HttpRequest& request, RequestBody& body) const {
  // The path is decoded already, so "%2F" separates as "/" does.
  const std::vector<std::string> path = segmentsOf(request.path);
  // The connection leaves the body of a HEAD's response out; until there it is a GET.
  const std::string method = request.method == "HEAD" ? "GET" : request.method;
  std::string allowed;
  for (const Route& route : routes_) {
    auto arguments = match(route.segments, path);
    if (!arguments) continue;
    if (route.method == method) {
      request.pathArguments = *std::move(arguments);
      return route.handler(request, body);
    }
    // The path is known, its method is not: 405 has to name those that are (RFC 9110, 15.5.6).
    allowed += (allowed.empty() ? "" : ", ") + route.method;
  }
  if (allowed.empty()) return errorResponse(kUnknownPath, "there is nothing at this path", 404);
  HttpResponse response =
      errorResponse(kUnknownPath, fmt::format("this path has no method {}", request.method), 405);
  response.headers.emplace_back("Allow", allowed);
  return response;
}

}  // namespace varo::sandbox
