#pragma once

#include "Sandbox/Blobs/BlobCatalog.h"
#include "Sandbox/Http/HttpResponse.h"
#include "Sandbox/Http/Router.h"

namespace varo::sandbox {

/// The binary columns of records, at {base}{scope}/{object}/binary?{primary keys}&type=bytes.
/// Thread-safe. Exceptions of the record database pass through.
class BlobService {
 public:
  explicit BlobService(const BlobCatalog& blobs);

  void registerRoutes(Router& router);

 private:
  [[nodiscard]] HttpResponse download(const HttpRequest& request) const;

  const BlobCatalog& blobs_;
};

}  // namespace varo::sandbox
