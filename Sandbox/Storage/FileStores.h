#pragma once

#include "Sandbox/Storage/DiskStore.h"
#include "Sandbox/Storage/RecordDatabase.h"

namespace varo::sandbox {

/// Where a file is kept: its record, and its bytes in one of two places. They outlive the services.
struct FileStores {
  RecordDatabase& records;
  DiskStore& serviceBytes;
  DiskStore& plainBytes;
};

}  // namespace varo::sandbox
