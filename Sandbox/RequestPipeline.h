#pragma once

#include "Sandbox/Control/RequestLog.h"
#include "Sandbox/Faults/FaultInjector.h"
#include "Sandbox/Http/Router.h"
#include "Sandbox/Http/StopSignal.h"
#include "Sandbox/Http/WantedToken.h"

#include <functional>
#include <string>

namespace varo::sandbox {

/// What every request of a listener goes through: fault, token check, service, log. The control
/// paths are spared all three, so that nobody locks himself out.
class RequestPipeline {
 public:
  struct Shared {
    FaultInjector& faults;
    RequestLog& log;
    StopSignal& stopSignal;
  };

  struct Token {
    /// A fault may replace it.
    WantedToken& wanted;
    /// Or else where requests are served.
    bool isCheckedHere;
  };

  /// Adds what all responses of a listener have. Any thread.
  using Stamp = std::function<void(HttpResponse&)>;

  /// An absent `stamp` adds nothing.
  RequestPipeline(std::string listener, Token token, Shared shared, Stamp stamp = nullptr);

  /// To be filled before the first request.
  [[nodiscard]] Router& router() { return router_; }
  [[nodiscard]] HttpResponse handle(HttpRequest& request, RequestBody& body) const;

 private:
  [[nodiscard]] HttpResponse authorizedResponse(HttpRequest& request, RequestBody& body) const;

  const std::string listener_;
  const Token token_;
  const Shared shared_;
  const Stamp stamp_;
  Router router_;
};

}  // namespace varo::sandbox
