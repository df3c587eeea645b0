#pragma once

#include "Sandbox/Http/HttpResponse.h"
#include "Sandbox/Http/RequestBody.h"
#include "Sandbox/Http/Router.h"
#include "Sandbox/Storage/DiskStore.h"

namespace varo::sandbox {

/// A plain object store: PUT, POST, GET, HEAD and DELETE of /objects/{key}. It knows nothing of the
/// object service, responds to a write with an ETag and no body, and an error with plain text.
/// Thread-safe. Exceptions of the record database pass through.
class PlainStore {
 public:
  explicit PlainStore(DiskStore& bytes);

  void registerRoutes(Router& router);

 private:
  [[nodiscard]] HttpResponse write(const HttpRequest& request, RequestBody& body);
  [[nodiscard]] HttpResponse read(const HttpRequest& request) const;
  [[nodiscard]] HttpResponse remove(const HttpRequest& request);

  DiskStore& bytes_;
};

}  // namespace varo::sandbox
