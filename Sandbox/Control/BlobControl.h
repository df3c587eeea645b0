#pragma once

#include "Sandbox/Blobs/BlobCatalog.h"
#include "Sandbox/Http/HttpResponse.h"
#include "Sandbox/Http/RequestBody.h"
#include "Sandbox/Http/Router.h"

namespace varo::sandbox {

/// How a tester fills the blob service, under /control/blobs. Thread-safe. Exceptions of the record
/// store pass through.
class BlobControl {
 public:
  explicit BlobControl(BlobCatalog& blobs);

  void registerRoutes(Router& router);

 private:
  [[nodiscard]] HttpResponse define(RequestBody& body);
  [[nodiscard]] HttpResponse store(const HttpRequest& request, RequestBody& body);

  BlobCatalog& blobs_;
};

}  // namespace varo::sandbox
