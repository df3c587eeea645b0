#pragma once

#include "Sandbox/Http/HttpResponse.h"
#include "Sandbox/Http/Router.h"
#include "Sandbox/Online/OnlineTemplateKind.h"
#include "Sandbox/Online/SignedStoreOptions.h"
#include "Sandbox/Storage/DiskStore.h"

#include <boost/json/object.hpp>

#include <functional>
#include <string>

namespace varo::sandbox {

/// The service's side of online transfers: {services}/online/templates hands out upload templates,
/// and {services}/online/objects/{key} is a way to the store's objects through the service.
/// Thread-safe. Exceptions of the record database pass through.
class OnlineService {
 public:
  /// Where the service itself and the sandbox's own store are: scheme, host and port.
  struct Origins {
    std::string service;
    std::string store;
  };

  /// `origins` is asked with each request, since the ports are known only then.
  OnlineService(DiskStore& objects, SignedStoreOptions options, std::function<Origins()> origins);

  void registerRoutes(Router& router);

 private:
  [[nodiscard]] HttpResponse handOut(RequestBody& body) const;
  [[nodiscard]] boost::json::object templateFor(const OnlineTemplateKind& kind,
                                                const boost::json::object& uploadParams) const;
  /// Origin and path that the bytes go to, below "endpointUrl" or "domain" and "relativepath".
  void addAddress(const OnlineTemplateKind& kind, const boost::json::object& uploadParams,
                  boost::json::object& entries) const;
  [[nodiscard]] HttpResponse write(const HttpRequest& request, RequestBody& body);
  [[nodiscard]] HttpResponse read(const HttpRequest& request) const;

  DiskStore& objects_;
  const SignedStoreOptions options_;
  const std::function<Origins()> origins_;
};

}  // namespace varo::sandbox
