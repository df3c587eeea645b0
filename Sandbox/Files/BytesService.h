#pragma once

#include "Sandbox/Http/HttpResponse.h"
#include "Sandbox/Http/RequestBody.h"
#include "Sandbox/Http/Router.h"
#include "Sandbox/Storage/ByteStore.h"
#include "Sandbox/Storage/RecordStore.h"

#include <optional>

namespace varo::sandbox {

/// The files' bytes, through the service itself: chunks come in and files go out at
/// {base}/bytes/{file_id}. Thread-safe. Exceptions of the record store pass through.
class BytesService {
 public:
  BytesService(RecordStore& records, ByteStore& bytes);

  void registerRoutes(Router& router);

 private:
  [[nodiscard]] HttpResponse upload(const HttpRequest& request, RequestBody& body);
  [[nodiscard]] HttpResponse download(const HttpRequest& request) const;

  RecordStore& records_;
  ByteStore& bytes_;
};

}  // namespace varo::sandbox
