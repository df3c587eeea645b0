#pragma once

#include "Sandbox/BlobCatalog.h"
#include "Sandbox/HttpResponse.h"
#include "Sandbox/Router.h"

namespace varo::sandbox {

/// The binary columns of records, at {base}{scope}/{object}/binary?{primary keys}&type=bytes.
/// Thread-safe. Exceptions of the record store pass through.
class BlobService {
 public:
  explicit BlobService(const BlobCatalog& blobs);

  void registerRoutes(Router& router);

 private:
  [[nodiscard]] HttpResponse download(const HttpRequest& request) const;

  const BlobCatalog& blobs_;
};

}  // namespace varo::sandbox
