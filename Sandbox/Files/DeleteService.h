#pragma once

#include "Sandbox/Files/AcceptedDeletes.h"
#include "Sandbox/Files/DeleteKind.h"
#include "Sandbox/Http/HttpResponse.h"
#include "Sandbox/Http/Router.h"
#include "Sandbox/Storage/DiskStore.h"

#include <optional>
#include <string>
#include <vector>

namespace varo::sandbox {

/// Deletes files that a filter selects, at once or later, and tells how far it is. A delete by id
/// is also how an upload is given up before its commit. Thread-safe. Exceptions of the record
/// database pass through.
class DeleteService {
 public:
  DeleteService(FileStores stores, const DeleteDefault& defaultKind);

  void registerRoutes(Router& router);

 private:
  [[nodiscard]] HttpResponse remove(const HttpRequest& request);
  [[nodiscard]] HttpResponse status(const HttpRequest& request);

  /// Nothing where the file that decides has a wish that makes no sense.
  [[nodiscard]] std::optional<DeleteKind> kindFor(const std::vector<FileRecord>& files) const;
  void removeFiles(const std::vector<std::string>& ids);

  const FileStores stores_;
  const DeleteDefault& defaultKind_;
  AcceptedDeletes accepted_{{}};
};

}  // namespace varo::sandbox
