#include "Sandbox/Control/BlobControl.h"

#include "Sandbox/Control/ControlRoute.h"
#include "Sandbox/Http/HttpLimits.h"
#include "Sandbox/Http/JsonText.h"
#include "Sandbox/ServiceProtocol.h"
#include "Sandbox/Storage/BodyReceiver.h"
#include "Sandbox/Storage/DiskWriter.h"

#include <boost/json/object.hpp>
#include <boost/json/serialize.hpp>

#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <variant>

namespace varo::sandbox {
namespace json = boost::json;
namespace {

HttpResponse done() {
  HttpResponse response;
  response.text = json::serialize(json::object{{"opstatus", 0}});
  return response;
}

HttpResponse refusal(const WriteProblem& problem) {
  return errorResponse(problem.opstatus, problem.reason, problem.opstatus == kInternal ? 500 : 400);
}

/// Takes the entries that name the object out of `entries`.
std::optional<BlobKey> takeKey(json::object& entries) {
  const auto scope = textUnder(entries, "scope");
  const auto object = textUnder(entries, "object");
  const json::value* keys = entries.if_contains("keys");
  if (!scope || !object || keys == nullptr || !keys->is_object()) return std::nullopt;
  BlobKey key{*scope, *object, scalarEntries(keys->get_object())};
  // Something was no scalar and left out. The record would then be found under another key.
  if (key.primaryKeys.size() != keys->get_object().size()) return std::nullopt;
  for (const char* name : {"scope", "object", "keys"}) entries.erase(name);
  return key;
}

}  // namespace

BlobControl::BlobControl(BlobCatalog& blobs) : blobs_(blobs) {}

void BlobControl::registerRoutes(Router& router) {
  addControlRoute(router, "POST", "blobs",
                  [this](const HttpRequest&, RequestBody& body) { return define(body); });
  addControlRoute(router, "DELETE", "blobs", [this](const HttpRequest&, RequestBody&) {
    blobs_.clear();
    return done();
  });
  addControlRoute(
      router, "PUT", "blobs/*/*",
      [this](const HttpRequest& request, RequestBody& body) { return store(request, body); });
}

HttpResponse BlobControl::define(RequestBody& body) {
  const auto text = body.readText(kMaxJsonBytes);
  auto entries = text ? parseJsonObject(*text) : std::nullopt;
  if (!entries) return errorResponse(kBadJson, "the body is not a JSON object", 400);
  const auto key = takeKey(*entries);
  if (!key) {
    return errorResponse(kBadParameter, "\"scope\", \"object\" or \"keys\" is missing or wrong",
                         400);
  }
  if (const auto problem = blobs_.define(*key, *entries)) {
    return errorResponse(kBadParameter, *problem, 400);
  }
  return done();
}

HttpResponse BlobControl::store(const HttpRequest& request, RequestBody& body) {
  const BlobKey key{request.pathArguments[0], request.pathArguments[1], request.parameters};
  auto writer = blobs_.write(key);
  if (const auto* problem = std::get_if<WriteProblem>(&writer)) return refusal(*problem);
  DiskWriter& blob = *std::get<std::unique_ptr<DiskWriter>>(writer);
  // The bytes first: the object counts as stored once all of them are there.
  if (const auto problem = receiveBody(request, body, blob)) return refusal(*problem);
  blobs_.putStored(key);
  return done();
}

}  // namespace varo::sandbox
