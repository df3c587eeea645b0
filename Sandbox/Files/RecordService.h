#pragma once

#include "Sandbox/Files/TemplateKind.h"
#include "Sandbox/Http/HttpResponse.h"
#include "Sandbox/Http/RequestBody.h"
#include "Sandbox/Http/Router.h"
#include "Sandbox/Storage/DiskStore.h"

#include <boost/json/object.hpp>

#include <functional>
#include <optional>
#include <string>
#include <variant>

namespace varo::sandbox {

/// The files' records: listed, created, updated and committed at {base}/objects/File.
/// Thread-safe. Exceptions of the record database pass through.
class RecordService {
 public:
  /// `storeUrl` gives the outside store's address once it listens.
  RecordService(FileStores stores, TemplateKind defaultTemplate,
                std::function<std::string()> storeUrl);

  void registerRoutes(Router& router);

 private:
  using ObjectOrRefusal = std::variant<boost::json::object, HttpResponse>;

  [[nodiscard]] HttpResponse list(const HttpRequest& request) const;
  [[nodiscard]] HttpResponse create(RequestBody& body);
  [[nodiscard]] HttpResponse put(const HttpRequest& request, RequestBody& body);
  /// Merges the entries of the body into the metadata; a commit completes the upload with them.
  enum class Change { kUpdate, kCommit };
  [[nodiscard]] HttpResponse change(RequestBody& body, Change change);

  [[nodiscard]] std::string recordText(const FileRecord& record) const;
  [[nodiscard]] std::string uploadTemplate(const std::string& id, const TemplateKind& kind) const;
  [[nodiscard]] std::optional<HttpResponse> completeRecord(const boost::json::object& entries,
                                                           FileRecord& record) const;

  const FileStores stores_;
  const TemplateKind defaultTemplate_;
  const std::function<std::string()> storeUrl_;
};

}  // namespace varo::sandbox
