#pragma once

#include "Sandbox/Http/HttpResponse.h"
#include "Sandbox/Http/RequestBody.h"
#include "Sandbox/Http/Router.h"
#include "Sandbox/Storage/DiskStore.h"
#include "Sandbox/Storage/RecordDatabase.h"

#include <optional>

namespace varo::sandbox {

/// The files' bytes, through the service itself: chunks come in and files go out at
/// {base}/bytes/{file_id}. Thread-safe. Exceptions of the record database pass through.
class ContentService {
 public:
  ContentService(RecordDatabase& records, DiskStore& bytes);

  void registerRoutes(Router& router);

 private:
  [[nodiscard]] HttpResponse upload(const HttpRequest& request, RequestBody& body);
  [[nodiscard]] HttpResponse download(const HttpRequest& request) const;

  RecordDatabase& records_;
  DiskStore& bytes_;
};

}  // namespace varo::sandbox
