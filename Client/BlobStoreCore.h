#pragma once

#include "Client/BlobDatabase.h"
#include "Client/ClientCore.h"
#include "varo/blobs.h"

#include <memory>
#include <utility>

namespace varo::detail {

/// What the copies of one store share. Immutable, but for what its parts guard themselves.
class BlobStoreCore {
 public:
  BlobStoreCore(std::shared_ptr<ClientCore> client, std::shared_ptr<BlobDatabase> database,
                BlobService service)
      : client_(std::move(client)), database_(std::move(database)), service_(std::move(service)) {}

  [[nodiscard]] const ClientCore& client() const noexcept { return *client_; }
  [[nodiscard]] const std::shared_ptr<BlobDatabase>& database() const noexcept { return database_; }
  [[nodiscard]] const BlobService& service() const noexcept { return service_; }

 private:
  const std::shared_ptr<ClientCore> client_;
  const std::shared_ptr<BlobDatabase> database_;
  const BlobService service_;
};

}  // namespace varo::detail
