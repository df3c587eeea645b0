#pragma once

#include "Binary/BinaryFileAdapterWithMetadata/Tasks/BinaryBaseTask.h"
#include "Platform/Common/NetworkError.h"

#include <cstdint>
#include <string>

namespace varo::binary {

/// Asks once how far an accepted operation has come. The loop runs the same task once an attempt;
/// each run reads its input anew.
///
/// Input: "pollingUrl", "queryParams", "pollingSuccessIndicators" (the entries that the response of
/// a finished operation holds), "headers", and optional "currentIteration" (from 1) and "options".
/// Output: the response's entries and "pollingStatus", whether the operation is finished. Ends as
/// Ended either way, except that the last attempt raises an error when it is not. Reports to no
/// callback: that is the business of whoever runs the loop.
class StatusCheckerTask final : public BinaryBaseTask {
 public:
  explicit StatusCheckerTask(platform::ErrorPtr* error = nullptr);

  void execute() override;

 protected:
  [[nodiscard]] std::string_view errorDomain() const noexcept override;

 private:
  void initializeIvars();
  void unpackInputContext();
  void processResponse(const platform::Dictionary& response,
                       const platform::NetworkErrorPtr& error);
  [[nodiscard]] bool isFinished(const platform::Dictionary& response) const;

  // Of one run.
  std::string _pollingUrl;
  std::int64_t _currentIteration = 1;
  platform::Dictionary _headers;
  platform::Dictionary _queryParams;
  platform::Dictionary _pollingSuccessIndicators;
};

}  // namespace varo::binary
