#include "Client/ClientTransport.h"

#include "Platform/Foundation/Mutex.h"
#include "Platform/Foundation/Runtime.h"

#include <algorithm>
#include <vector>

namespace varo::detail {

using platform::HttpTransport;
using platform::MutexLock;

namespace {

/// The transports of all clients, for the shutdown.
class ClientTransports {
 public:
  static ClientTransports& shared() {
    static auto& instance = *new ClientTransports();  // the runtime's shutdown may come last of all
    return instance;
  }

  void add(const std::shared_ptr<HttpTransport>& transport) {
    const MutexLock lock(mutex_);
    std::erase_if(transports_, [](const auto& weak) { return weak.expired(); });
    transports_.push_back(transport);
  }

 private:
  ClientTransports() {
    platform::Runtime::shared().onShutdown([this] { shutdown(); });
  }

  void shutdown() {
    std::vector<std::weak_ptr<HttpTransport>> transports;
    {
      const MutexLock lock(mutex_);
      transports.swap(transports_);
    }
    for (const auto& weak : transports) {
      if (const auto transport = weak.lock()) transport->shutdown();
    }
  }

  platform::Mutex mutex_;
  std::vector<std::weak_ptr<HttpTransport>> transports_ VARO_GUARDED_BY(mutex_);
};

}  // namespace

std::shared_ptr<HttpTransport> makeClientTransport(
    const platform::NetworkConfiguration& configuration) {
  auto transport = std::make_shared<platform::CurlHttpTransport>(
      configuration, platform::Runtime::shared().pool());
  ClientTransports::shared().add(transport);
  // A shutdown that began meanwhile has not seen it.
  if (platform::Runtime::shared().isShutDown()) transport->shutdown();
  return transport;
}

}  // namespace varo::detail
