#pragma once

#include "Sandbox/ByteStore.h"
#include "Sandbox/HttpResponse.h"
#include "Sandbox/RecordStore.h"
#include "Sandbox/RequestBody.h"
#include "Sandbox/Router.h"

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
