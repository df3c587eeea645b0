#pragma once

#include "Sandbox/Http/HttpResponse.h"
#include "Sandbox/Online/StoreOperation.h"
#include "Sandbox/Storage/DiskStore.h"

namespace varo::sandbox {

/// Lists the objects of a bucket page by page (ListObjectsV2): keys in the order of their bytes,
/// those that share what stands before a delimiter as one entry. Thread-safe. Exceptions of the
/// record database pass through.
class ObjectListing {
 public:
  explicit ObjectListing(const DiskStore& objects) : objects_(objects) {}

  [[nodiscard]] StoreOperation operation() const;

 private:
  [[nodiscard]] HttpResponse list(const HttpRequest& request) const;

  const DiskStore& objects_;
};

}  // namespace varo::sandbox
