#include "Sandbox/Files/DeleteService.h"

#include "Sandbox/Files/DeleteKind.h"
#include "Sandbox/Files/FilterParser.h"
#include "Sandbox/Http/JsonText.h"
#include "Sandbox/ServiceProtocol.h"

#include <boost/json/serialize.hpp>
#include <fmt/format.h>

#include <algorithm>
#include <string_view>
#include <utility>
#include <variant>

namespace varo::sandbox {
namespace json = boost::json;
namespace {

constexpr std::string_view kOperationParameter = "operation_id";
constexpr std::string_view kTypeParameter = "type";
constexpr std::string_view kDeleteType = "delete";

HttpResponse jsonResponse(int status, json::object entries) {
  entries["opstatus"] = 0;
  entries["httpStatusCode"] = status;
  HttpResponse response;
  response.status = status;
  response.text = json::serialize(entries);
  return response;
}

// An upload that is not committed is nobody's but that client's who knows its id.
RecordDatabase::Scope scopeOf(const Filter& filter) {
  const bool byId = std::any_of(filter.begin(), filter.end(),
                                [](const auto& term) { return term.first == "file_id"; });
  return byId ? RecordDatabase::Scope::kAll : RecordDatabase::Scope::kCommitted;
}

std::vector<std::string> idsOf(const std::vector<FileRecord>& files) {
  std::vector<std::string> ids;
  ids.reserve(files.size());
  for (const FileRecord& file : files) ids.push_back(file.id);
  return ids;
}

// What stands behind "services" in the address to poll.
std::string pollAddress(std::string_view name) {
  return fmt::format("{}{}?{}={}&{}={}", kStoragePath, kOperationsPath, kOperationParameter, name,
                     kTypeParameter, kDeleteType);
}

HttpResponse failedPoll(const DeleteKind& kind) {
  constexpr std::string_view kReason = "the delete failed, as was asked for";
  if (kind.opstatus || !kind.httpStatus) {
    return errorResponse(kind.opstatus.value_or(kDeleteFailed), kReason,
                         kind.httpStatus.value_or(200));
  }
  HttpResponse response;
  response.status = *kind.httpStatus;
  response.contentType = "text/plain";
  response.text = kReason;
  return response;
}

}  // namespace

DeleteService::DeleteService(FileStores stores, const DeleteDefault& defaultKind)
    : stores_(stores), defaultKind_(defaultKind) {}

void DeleteService::registerRoutes(Router& router) {
  router.add("DELETE", fmt::format("{}{}{}", kServicesPath, kStoragePath, kFilesPath),
             [this](const HttpRequest& request, RequestBody&) { return remove(request); });
  router.add("GET", fmt::format("{}{}{}", kServicesPath, kStoragePath, kOperationsPath),
             [this](const HttpRequest& request, RequestBody&) { return status(request); });
}

HttpResponse DeleteService::remove(const HttpRequest& request) {
  const std::string* text = request.parameter("$filter");
  const auto parsed = parseFilter(text == nullptr ? "" : *text);
  if (const auto* problem = std::get_if<FilterProblem>(&parsed)) {
    return errorResponse(kBadFilter, problem->reason);
  }
  const Filter& filter = std::get<Filter>(parsed);
  // Everything is what a client asks for by mistake only.
  if (filter.empty()) return errorResponse(kBadParameter, "\"$filter\" is missing or empty");

  const std::vector<FileRecord> files = stores_.records.list(filter, scopeOf(filter));
  if (files.empty()) return errorResponse(kNothingToDelete, "no file matches the filter");
  const auto kind = kindFor(files);
  if (!kind) return errorResponse(kBadParameter, "\"sandbox_delete\" is not valid");
  if (kind->mode == DeleteKind::Mode::kNow) {
    removeFiles(idsOf(files));
    return jsonResponse(200, {{"files_deleted", files.size()}});
  }
  const std::string name = accepted_.add(*kind, idsOf(files));
  return jsonResponse(202, {{"poll_api", pollAddress(name)}});
}

HttpResponse DeleteService::status(const HttpRequest& request) {
  const std::string* name = request.parameter(kOperationParameter);
  const std::string* type = request.parameter(kTypeParameter);
  if (name == nullptr || type == nullptr || *type != kDeleteType) {
    return errorResponse(kBadParameter, "\"operation_id\" or \"type\" is missing or wrong");
  }
  const auto poll = accepted_.poll(*name);
  if (!poll) return errorResponse(kUnknownOperation, "there is no such delete, or it is forgotten");
  using Answer = AcceptedDeletes::Poll::Answer;
  if (poll->answer == Answer::kFailed) return failedPoll(poll->kind);
  if (poll->answer == Answer::kWorking) return jsonResponse(200, {{"poll_status", "true"}});

  // Before "done" is said. Two polls at once may both get here, and removing twice does no harm.
  if (poll->files) {
    removeFiles(*poll->files);
    accepted_.finish(*name);
  }
  const bool asBoolean = poll->kind.mode == DeleteKind::Mode::kBoolean;
  return jsonResponse(200, {{"poll_status", asBoolean ? json::value(false) : json::value("false")},
                            {"files_deleted", poll->fileCount}});
}

// The oldest file that wishes for something decides for all.
std::optional<DeleteKind> DeleteService::kindFor(const std::vector<FileRecord>& files) const {
  const DeleteKind defaults = defaultKind_.get();
  for (const FileRecord& file : files) {
    const json::object metadata = parseJsonObject(file.metadata).value_or(json::object());
    if (metadata.contains(kDeleteWish)) return wishedDeleteKind(metadata, defaults);
  }
  return defaults;
}

// The record first: bytes that arrive meanwhile are then refused or thrown away.
void DeleteService::removeFiles(const std::vector<std::string>& ids) {
  for (const std::string& id : ids) {
    stores_.records.remove(id);
    stores_.serviceBytes.discard(id);
    stores_.plainBytes.discard(id);
  }
}

}  // namespace varo::sandbox
