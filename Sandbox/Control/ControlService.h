#pragma once

#include "Sandbox/Control/RequestLog.h"
#include "Sandbox/Faults/FaultInjector.h"
#include "Sandbox/Files/DeleteKind.h"
#include "Sandbox/Http/HttpResponse.h"
#include "Sandbox/Http/RequestBody.h"
#include "Sandbox/Http/Router.h"

namespace varo::sandbox {

/// What a tester says to the sandbox: faults, how deletes go, counters and the last requests, under
/// /control/ of the object service's listener. It responds to clients on this machine only.
/// Thread-safe.
class ControlService {
 public:
  ControlService(FaultInjector& faults, RequestLog& log, DeleteDefault& deletes);

  void registerRoutes(Router& router);

 private:
  [[nodiscard]] HttpResponse addFaults(RequestBody& body);
  [[nodiscard]] HttpResponse setDeletes(RequestBody& body);
  [[nodiscard]] HttpResponse stats() const;
  [[nodiscard]] HttpResponse requests() const;

  FaultInjector& faults_;
  RequestLog& log_;
  DeleteDefault& deletes_;
};

}  // namespace varo::sandbox
