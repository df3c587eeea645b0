#include "Sandbox/Online/OnlineService.h"

#include "Sandbox/Http/HttpLimits.h"
#include "Sandbox/Http/JsonText.h"
#include "Sandbox/Online/AddressSigner.h"
#include "Sandbox/Online/ObjectUpload.h"
#include "Sandbox/Online/OnlineTemplateKind.h"
#include "Sandbox/ServiceProtocol.h"
#include "Sandbox/Storage/RandomName.h"

#include <boost/json/array.hpp>
#include <boost/json/serialize.hpp>
#include <fmt/format.h>

#include <chrono>
#include <utility>
#include <variant>

namespace varo::sandbox {
namespace json = boost::json;
namespace {

using Target = OnlineTemplateKind::Target;
using Auth = OnlineTemplateKind::Auth;

constexpr std::string_view kWish = "sandbox_template";
constexpr std::string_view kObjectName = "objectName";
constexpr std::string_view kFileName = "fileName";

/// The client fills it in, so that it signs the very name that it sends.
constexpr std::string_view kObjectNamePlaceholder = "${objectName}";

std::string keyFrom(const json::object& uploadParams) {
  for (const std::string_view entry : {kObjectName, kFileName}) {
    auto text = textUnder(uploadParams, entry);
    if (text && !text->empty()) return *std::move(text);
  }
  // Without a wish any name will do; two uploads must only not share one.
  return randomName();
}

HttpResponse badParameter(std::string_view reason) {
  return errorResponse(kBadParameter, reason, 400);
}

HttpResponse refusal(const WriteProblem& problem) {
  const int status = problem.opstatus == kInternal     ? 500
                     : problem.opstatus == kWrongState ? 409
                                                       : 400;
  return errorResponse(problem.opstatus, problem.reason, status);
}

json::object entriesOf(const FormPart& part) {
  json::object entries{{"name", part.name}, {"size", part.size}};
  if (part.fileName) {
    entries["fileName"] = *part.fileName;
  } else if (auto object = parseJsonObject(part.text)) {
    entries["value"] = *std::move(object);
  } else {
    entries["value"] = part.text;
  }
  return entries;
}

void merge(const json::object& from, json::object& entries) {
  for (const auto& [key, value] : from) {
    if (value.is_null()) {
      entries.erase(key);
    } else {
      entries[key] = value;
    }
  }
}

sigv4::Time thisMoment() {
  return std::chrono::floor<std::chrono::seconds>(std::chrono::system_clock::now());
}

}  // namespace

OnlineService::OnlineService(DiskStore& objects, SignedStoreOptions options,
                             std::function<Origins()> origins)
    : objects_(objects), options_(std::move(options)), origins_(std::move(origins)) {}

void OnlineService::registerRoutes(Router& router) {
  const std::string base = fmt::format("{}{}", kServicesPath, kOnlinePath);
  router.add("POST", base + std::string(kTemplatesPath),
             [this](const HttpRequest&, RequestBody& body) { return handOut(body); });
  const std::string objects = fmt::format("{}{}**", base, kOnlineObjectsPath);
  const auto writer = [this](const HttpRequest& request, RequestBody& body) {
    return write(request, body);
  };
  router.add("PUT", objects, writer);
  router.add("POST", objects, writer);
  router.add("GET", objects,
             [this](const HttpRequest& request, RequestBody&) { return read(request); });
}

HttpResponse OnlineService::handOut(RequestBody& body) const {
  const auto text = body.readText(kMaxJsonBytes);
  if (!text) return errorResponse(kBadBody, "the body is broken or too large", 400);
  const auto uploadParams = parseJsonObject(text->empty() ? "{}" : *text);
  if (!uploadParams) return errorResponse(kBadJson, "the body is not a JSON object", 400);
  const auto wish =
      uploadParams->contains(kWish) ? objectUnder(*uploadParams, kWish) : json::object();
  if (!wish) return badParameter("\"sandbox_template\" is not an object");
  const auto read = onlineTemplateKindFrom(*wish);
  if (const auto* problem = std::get_if<std::string>(&read)) return badParameter(*problem);
  const auto& kind = std::get<OnlineTemplateKind>(read);
  // A form posted to such a store needs a signed policy, which the sandbox does not make.
  const bool isOutside = kind.target == Target::kStore && !options_.outsideUrl.empty();
  if (isOutside && kind.isMultipart()) return badParameter("the outside store takes no forms");
  HttpResponse response;
  response.status = kind.status;
  response.text = json::serialize(templateFor(kind, *uploadParams));
  return response;
}

json::object OnlineService::templateFor(const OnlineTemplateKind& kind,
                                        const json::object& uploadParams) const {
  json::object entries;
  if (kind.opstatus) entries["opstatus"] = *kind.opstatus;
  entries["uploadMode"] = kind.uploadMode;
  entries["method"] = kind.isMultipart() ? "POST" : "PUT";
  addAddress(kind, uploadParams, entries);
  if (kind.auth == Auth::kHmacDigest) {
    entries["Auth"] = "HMACDigest";
    entries["AuthParameters"] = json::object{{"serviceName", sigv4::kService}};
  }
  if (kind.isMultipart()) {
    // An object becomes a part with its text, a text a part with the file.
    entries["requestBody"] = json::object{
        {"details", json::object{{kObjectName, keyFrom(uploadParams)}}}, {"file", "bytes"}};
  }
  merge(kind.entries, entries);
  return entries;
}

void OnlineService::addAddress(const OnlineTemplateKind& kind, const json::object& uploadParams,
                               json::object& entries) const {
  // The port is in the signature ("host"), so the address must be the one that clients will use.
  const Origins origins = origins_();
  const bool isService = kind.target == Target::kService;
  const std::string& store = options_.outsideUrl.empty() ? origins.store : options_.outsideUrl;
  const std::string authority(authorityOf(isService ? origins.service : store));
  std::string domain = isService ? origins.service + std::string(kServicesPath) : store;
  const std::string key = keyFrom(uploadParams);
  std::string path =
      fmt::format("{}{}{}", isService ? kOnlinePath : "", isService ? kOnlineObjectsPath : "/",
                  sigv4::uriEncoded(key, sigv4::Slash::kKept));
  if (kind.auth == Auth::kPresigned) {
    const std::string_view method = kind.isMultipart() ? "POST" : "PUT";
    // The method is signed as well, so the template has to name the same one.
    path = signedPath(options_, method, authority, key, thisMoment());
  } else if (kind.auth == Auth::kHmacDigest && !isService &&
             textUnder(uploadParams, kObjectName).value_or("") == key) {
    // The client fills placeholders from its parameters, so only a name that it gave can be one.
    path = fmt::format("/{}", kObjectNamePlaceholder);
  }
  // The client signs the host, and takes it from here.
  if (kind.auth == Auth::kHmacDigest) entries["Host"] = authority;
  if (kind.address == OnlineTemplateKind::Address::kEndpointUrl) {
    entries["endpointUrl"] = domain + path;
    return;
  }
  // The service calls itself by a name that stands for the address which the client has anyway.
  entries["domain"] = isService ? std::string(kServiceDomain) : std::move(domain);
  entries["relativepath"] = path;
}

HttpResponse OnlineService::write(const HttpRequest& request, RequestBody& body) {
  const std::string& key = request.pathArguments.front();
  if (key.empty()) return badParameter("the object's name is missing");
  const auto received = receiveObject(request, body, objects_, key);
  if (const auto* problem = std::get_if<WriteProblem>(&received)) return refusal(*problem);
  const auto& object = std::get<ReceivedObject>(received);
  json::object answer{{"opstatus", 0},
                      {kObjectName, key},
                      {"size", object.state.size},
                      {"ETag", object.state.entityTag}};
  json::array parts;
  for (const FormPart& part : object.parts) parts.push_back(entriesOf(part));
  if (!parts.empty()) answer["parts"] = std::move(parts);
  HttpResponse response;
  response.text = json::serialize(answer);
  return response;
}

HttpResponse OnlineService::read(const HttpRequest& request) const {
  const auto stored = objects_.open(request.pathArguments.front());
  if (!stored) return errorResponse(kNotFound, "there is no such object", 404);
  return rangeResponse(request, {stored->bytes, stored->state.size, stored->state.entityTag});
}

}  // namespace varo::sandbox
