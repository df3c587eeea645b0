#pragma once

#include "varo/varo.h"

#include <memory>
#include <string>
#include <utility>

namespace varo::test {

using Handle = std::unique_ptr<varo_transfer, void (*)(varo_transfer*)>;

inline Handle owned(varo_transfer* transfer) { return {transfer, varo_transfer_release}; }

/// The code of a transfer's end, and what its failure says.
inline std::pair<varo_code, std::string> endOf(varo_transfer* transfer) {
  const Handle handle = owned(transfer);
  const varo_code code = varo_transfer_wait(transfer, -1);
  const varo_failure* failure = varo_outcome_failure(varo_transfer_outcome(transfer));
  return {code, failure != nullptr ? failure->message : ""};
}

}  // namespace varo::test
