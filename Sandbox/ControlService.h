#pragma once

#include "Sandbox/DeleteDefault.h"
#include "Sandbox/FaultInjector.h"
#include "Sandbox/HttpResponse.h"
#include "Sandbox/RequestBody.h"
#include "Sandbox/RequestLog.h"
#include "Sandbox/Router.h"

namespace varo::sandbox {

/// What a tester says to the sandbox: faults, how deletes go, counters and the last requests, under
/// /control/ of the object service's listener. It answers clients on this machine only.
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
