#include "Sandbox/Files/RecordService.h"

#include "Platform/Foundation/Text.h"
#include "Sandbox/Files/DeleteKind.h"
#include "Sandbox/Files/FilterParser.h"
#include "Sandbox/Files/TemplateKind.h"
#include "Sandbox/Http/HttpLimits.h"
#include "Sandbox/Http/JsonText.h"
#include "Sandbox/ServiceProtocol.h"
#include "Sandbox/Storage/RandomName.h"

#include <boost/json/serialize.hpp>
#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <utility>

namespace varo::sandbox {
namespace json = boost::json;
namespace {

constexpr std::string_view kTemplateWish = "sandbox_template";
constexpr std::string_view kCommitProperties = "commit_properties";

// What a client sends under these names says something to the service; it is not kept.
constexpr std::array<std::string_view, 7> kNotMetadata = {
    "file_id",         "entity_tag",      "created",          kTemplateWish,
    kCommitProperties, "upload_template", "download_template"};

HttpResponse success(json::object entries) {
  entries["opstatus"] = 0;
  entries["httpStatusCode"] = 200;
  HttpResponse response;
  response.text = json::serialize(entries);
  return response;
}

std::variant<json::object, HttpResponse> readObject(RequestBody& body) {
  const auto text = body.readText(kMaxJsonBytes);
  if (!text) return errorResponse(kBadBody, "the body is broken or too large", 400);
  auto object = parseJsonObject(*text);
  if (!object) return errorResponse(kBadJson, "the body is not a JSON object");
  const json::value* wish = object->if_contains(kDeleteWish);
  const bool removesWish = wish != nullptr && wish->is_null();
  if (!removesWish && !wishedDeleteKind(*object, {})) {
    return errorResponse(kBadParameter, "\"sandbox_delete\" is not valid");
  }
  return *std::move(object);
}

void mergeMetadata(const json::object& from, json::object& metadata) {
  for (const auto& [key, value] : from) {
    if (std::find(kNotMetadata.begin(), kNotMetadata.end(), key) != kNotMetadata.end()) continue;
    // JSON's way to say "remove this entry" in a merge (RFC 7396).
    if (value.is_null()) {
      metadata.erase(key);
    } else {
      metadata[key] = value;
    }
  }
}

std::optional<TemplateKind> wishedKind(const json::object& metadata, TemplateKind defaults) {
  if (!metadata.contains(kTemplateWish)) return defaults;
  const auto wish = objectUnder(metadata, kTemplateWish);
  return wish ? templateKindFrom(*wish, defaults) : std::nullopt;
}

RecordDatabase::Properties propertiesOf(const FileRecord& record, const json::object& metadata) {
  auto properties = scalarEntries(metadata);
  properties.emplace_back("file_id", record.id);
  // Behind the client's own entry of that name, which it replaces.
  if (record.committed) properties.emplace_back("file_size", std::to_string(record.size));
  return properties;
}

std::optional<json::object> commitProperties(const json::object& entries) {
  if (!entries.contains(kCommitProperties)) return json::object();
  return objectUnder(entries, kCommitProperties);
}

std::string withoutQuotes(std::string_view tag) {
  // Clients hand an ETag on with its quotes or without them.
  if (tag.size() >= 2 && tag.front() == '"' && tag.back() == '"')
    tag = tag.substr(1, tag.size() - 2);
  return std::string(tag);
}

bool hasEntityTag(const json::object& properties, const std::string& entityTag) {
  return std::any_of(properties.begin(), properties.end(), [&](const auto& entry) {
    return platform::equalIgnoringCase(entry.key(), "ETag") && entry.value().is_string() &&
           withoutQuotes(entry.value().get_string()) == withoutQuotes(entityTag);
  });
}

}  // namespace

RecordService::RecordService(FileStores stores, TemplateKind defaultTemplate,
                             std::function<std::string()> storeUrl)
    : stores_(stores), defaultTemplate_(defaultTemplate), storeUrl_(std::move(storeUrl)) {}

void RecordService::registerRoutes(Router& router) {
  const std::string path = fmt::format("{}{}{}", kServicesPath, kStoragePath, kFilesPath);
  router.add("GET", path,
             [this](const HttpRequest& request, RequestBody&) { return list(request); });
  router.add("POST", path, [this](const HttpRequest&, RequestBody& body) { return create(body); });
  router.add("PUT", path,
             [this](const HttpRequest& request, RequestBody& body) { return put(request, body); });
  router.add("PATCH", path, [this](const HttpRequest&, RequestBody& body) {
    return change(body, Change::kCommit);
  });
}

HttpResponse RecordService::list(const HttpRequest& request) const {
  const std::string* text = request.parameter("$filter");
  const auto filter = parseFilter(text == nullptr ? "" : *text);
  if (const auto* problem = std::get_if<FilterProblem>(&filter)) {
    return errorResponse(kBadFilter, problem->reason);
  }
  HttpResponse response;
  response.text = R"({"opstatus":0,"httpStatusCode":200,"records":[)";
  bool first = true;
  for (const FileRecord& record : stores_.records.list(std::get<Filter>(filter))) {
    if (!std::exchange(first, false)) response.text += ',';
    response.text += recordText(record);
  }
  response.text += "]}";
  return response;
}

std::string RecordService::recordText(const FileRecord& record) const {
  json::object object = parseJsonObject(record.metadata).value_or(json::object());
  object["file_id"] = record.id;
  object["file_size"] = record.size;
  object["entity_tag"] = record.entityTag;
  object["created"] = record.created;
  const auto kindObject = parseJsonObject(record.kind).value_or(json::object());
  const TemplateKind kind = templateKindFrom(kindObject, {}).value_or(TemplateKind{});
  object["download_template"] =
      kind.domain == TemplateKind::Domain::kStore
          ? downloadTemplateText(storeUrl_(), fmt::format("{}{}", kStoreObjectsPath, record.id))
          : downloadTemplateText(kServiceDomain,
                                 fmt::format("{}{}{}", kStoragePath, kBytesPath, record.id));
  return json::serialize(object);
}

HttpResponse RecordService::create(RequestBody& body) {
  auto read = readObject(body);
  if (auto* refusal = std::get_if<HttpResponse>(&read)) return std::move(*refusal);
  const json::object& entries = std::get<json::object>(read);
  if (textUnder(entries, "file_name").value_or("").empty()) {
    return errorResponse(kBadParameter, "\"file_name\" is missing or not a text");
  }
  const auto kind = wishedKind(entries, defaultTemplate_);
  if (!kind) return errorResponse(kBadParameter, "\"sandbox_template\" is not valid");

  json::object metadata;
  mergeMetadata(entries, metadata);
  FileRecord record;
  record.id = randomName();
  record.metadata = json::serialize(metadata);
  record.kind = textOf(*kind);
  stores_.records.insert(record, propertiesOf(record, metadata));
  return success({{"file_id", record.id}, {"upload_template", uploadTemplate(record.id, *kind)}});
}

std::string RecordService::uploadTemplate(const std::string& id, const TemplateKind& kind) const {
  if (kind.domain == TemplateKind::Domain::kService) {
    return uploadTemplateText(kind, kServiceDomain,
                              fmt::format("{}{}{}", kStoragePath, kBytesPath, id));
  }
  // The store is told nothing with a chunk, so its address says that chunks are to be joined.
  const bool appends = kind.chunked.value_or(true);
  return uploadTemplateText(kind, storeUrl_(),
                            fmt::format("{}{}{}{}", kStoreObjectsPath, id, appends ? "?" : "",
                                        appends ? kAppendQuery : ""));
}

HttpResponse RecordService::put(const HttpRequest& request, RequestBody& body) {
  const std::string* override = request.header("X-HTTP-Method-Override");
  // For clients, and proxies, that cannot send PATCH.
  if (override == nullptr || platform::equalIgnoringCase(*override, "PUT")) {
    return change(body, Change::kUpdate);
  }
  if (platform::equalIgnoringCase(*override, "PATCH")) return change(body, Change::kCommit);
  return errorResponse(kUnknownPath, "X-HTTP-Method-Override names no method of this path", 405);
}

HttpResponse RecordService::change(RequestBody& body, Change change) {
  auto read = readObject(body);
  if (auto* refusal = std::get_if<HttpResponse>(&read)) return std::move(*refusal);
  const json::object& entries = std::get<json::object>(read);
  const auto id = textUnder(entries, "file_id");
  if (!id) return errorResponse(kBadParameter, "\"file_id\" is missing or not a text");
  // Whoever comes second reads what the first one wrote and adds to it.
  for (;;) {
    auto record = stores_.records.find(*id);
    if (!record) return errorResponse(kNotFound, fmt::format("there is no file \"{}\"", *id));
    if (change == Change::kCommit) {
      if (auto refusal = completeRecord(entries, *record)) return *std::move(refusal);
    }
    json::object metadata = parseJsonObject(record->metadata).value_or(json::object());
    mergeMetadata(entries, metadata);
    record->metadata = json::serialize(metadata);
    if (!stores_.records.replace(*record, propertiesOf(*record, metadata))) continue;
    json::object answer{{"file_id", *id}};
    if (change == Change::kCommit) answer["file_size"] = record->size;
    return success(std::move(answer));
  }
}

std::optional<HttpResponse> RecordService::completeRecord(const json::object& entries,
                                                          FileRecord& record) const {
  if (record.committed) return errorResponse(kWrongState, "the file is committed already");
  const auto kindObject = parseJsonObject(record.kind).value_or(json::object());
  const TemplateKind kind = templateKindFrom(kindObject, {}).value_or(TemplateKind{});
  const bool outside = kind.domain == TemplateKind::Domain::kStore;
  const auto blob = (outside ? stores_.plainBytes : stores_.serviceBytes).state(record.id);
  if (!blob) return errorResponse(kWrongState, "no bytes have arrived");

  const auto properties = commitProperties(entries);
  if (!properties) {
    return errorResponse(kBadParameter, "\"commit_properties\" is not the text of a JSON object");
  }
  if (outside && !hasEntityTag(*properties, blob->entityTag)) {
    return errorResponse(kWrongEntityTag,
                         "\"commit_properties\" does not hold the ETag of the stored object");
  }
  const json::object metadata = parseJsonObject(record.metadata).value_or(json::object());
  const json::value* declared = metadata.if_contains("file_size");
  const auto size =
      declared == nullptr ? std::nullopt : parseUnsigned(scalarText(*declared).value_or(""));
  // A client that said how long the file is learns here that a chunk is missing.
  if (declared != nullptr && size != blob->size) {
    return errorResponse(kWrongSize,
                         fmt::format("{} bytes arrived, \"file_size\" says otherwise", blob->size));
  }
  record.committed = true;
  record.size = blob->size;
  record.entityTag = blob->entityTag;
  return std::nullopt;
}

}  // namespace varo::sandbox
