#pragma once

namespace varo::sandbox {

/// The "opstatus" values of the service's refusals, as docs/sandbox.md lists them.
enum ServiceStatus : int {
  kBadJson = 8001,
  kBadParameter = 8002,
  kBadFilter = 8003,
  kNotFound = 8004,
  kWrongState = 8005,
  kBadChunk = 8006,
  kWrongSize = 8007,
  kWrongEntityTag = 8008,
  kUnauthorized = 8009,
  kBadBody = 8010,
  kUnknownPath = 8011,
  kInternal = 8012,
  kWrongUploadMode = 8013,
  kForbidden = 8014,
  kNothingToDelete = 8015,
  kDeleteFailed = 8016,
  kUnknownOperation = 8017,
};

}  // namespace varo::sandbox
