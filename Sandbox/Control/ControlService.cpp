#include "Sandbox/Control/ControlService.h"

#include "Sandbox/Control/ControlRoute.h"
#include "Sandbox/Faults/Fault.h"
#include "Sandbox/Files/DeleteKind.h"
#include "Sandbox/Http/HttpLimits.h"
#include "Sandbox/Http/JsonText.h"
#include "Sandbox/ServiceProtocol.h"

#include <boost/json/array.hpp>
#include <boost/json/serialize.hpp>

#include <string_view>
#include <utility>
#include <vector>

namespace varo::sandbox {
namespace json = boost::json;
namespace {

HttpResponse jsonResponse(const json::value& value) {
  HttpResponse response;
  response.text = json::serialize(value);
  return response;
}

json::object statsObject(const ListenerStats& stats) {
  return {{"requests", stats.requests},
          {"bodyBytes", stats.bodyBytes},
          {"tokenHeaders", stats.tokenHeaders}};
}

std::vector<const json::value*> rulesIn(const json::value& object) {
  const json::value* list = object.get_object().if_contains("rules");
  if (list == nullptr) return {&object};
  std::vector<const json::value*> rules;
  if (list->is_array()) {
    for (const json::value& rule : list->get_array()) rules.push_back(&rule);
  }
  return rules;
}

}  // namespace

ControlService::ControlService(FaultInjector& faults, RequestLog& log, DeleteDefault& deletes)
    : faults_(faults), log_(log), deletes_(deletes) {}

void ControlService::registerRoutes(Router& router) {
  const auto add = [&router](std::string_view method, std::string_view name, auto action) {
    addControlRoute(router, method, name,
                    [action](const HttpRequest&, RequestBody& body) { return action(body); });
  };
  const auto done = [] { return jsonResponse({{"opstatus", 0}}); };
  add("POST", "faults", [this](RequestBody& body) { return addFaults(body); });
  add("DELETE", "faults", [this, done](RequestBody&) {
    faults_.clear();
    return done();
  });
  add("POST", "deletes", [this](RequestBody& body) { return setDeletes(body); });
  add("DELETE", "deletes", [this, done](RequestBody&) {
    deletes_.reset();
    return done();
  });
  add("GET", "stats", [this](RequestBody&) { return stats(); });
  add("DELETE", "stats", [this, done](RequestBody&) {
    log_.clear();
    return done();
  });
  add("GET", "requests", [this](RequestBody&) { return requests(); });
}

HttpResponse ControlService::addFaults(RequestBody& body) {
  const auto text = body.readText(kMaxJsonBytes);
  auto object = text ? parseJsonObject(*text) : std::nullopt;
  if (!object) return errorResponse(kBadJson, "the body is not a JSON object", 400);
  const json::value value(*std::move(object));
  std::vector<FaultRule> rules;
  for (const json::value* entry : rulesIn(value)) {
    if (!entry->is_object()) return errorResponse(kBadParameter, "a rule is not an object", 400);
    auto rule = faultRuleFrom(entry->get_object());
    if (const auto* problem = std::get_if<std::string>(&rule)) {
      return errorResponse(kBadParameter, *problem, 400);
    }
    rules.push_back(std::get<FaultRule>(std::move(rule)));
  }
  // All or none: half of a scenario would hit the wrong requests.
  for (FaultRule& rule : rules) faults_.add(std::move(rule));
  return jsonResponse({{"opstatus", 0}, {"rules", faults_.size()}});
}

HttpResponse ControlService::setDeletes(RequestBody& body) {
  const auto text = body.readText(kMaxJsonBytes);
  const auto object = text ? parseJsonObject(*text) : std::nullopt;
  if (!object) return errorResponse(kBadJson, "the body is not a JSON object", 400);
  // On top of what the sandbox started with, not of what was set last, so that each call says all.
  const auto kind = deleteKindFrom(*object, deletes_.initial());
  if (!kind) {
    return errorResponse(kBadParameter, "an entry is unknown or has a wrong value", 400);
  }
  deletes_.set(*kind);
  return jsonResponse({{"opstatus", 0}});
}

HttpResponse ControlService::stats() const {
  return jsonResponse({{"opstatus", 0},
                       {"held", faults_.held()},
                       {"service", statsObject(log_.stats("service"))},
                       {"store", statsObject(log_.stats("store"))}});
}

HttpResponse ControlService::requests() const {
  json::array list;
  for (const LoggedRequest& request : log_.requests()) {
    json::array headers;
    for (const auto& [name, value] : request.headers) headers.push_back({name, value});
    list.push_back({{"listener", request.listener},
                    {"method", request.method},
                    {"path", request.path},
                    {"query", request.query},
                    {"headers", std::move(headers)},
                    {"bodyBytes", request.bodyBytes},
                    {"status", request.status}});
  }
  return jsonResponse({{"opstatus", 0}, {"requests", std::move(list)}});
}

}  // namespace varo::sandbox
