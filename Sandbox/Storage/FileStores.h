#pragma once

#include "Sandbox/Storage/ByteStore.h"
#include "Sandbox/Storage/RecordStore.h"

namespace varo::sandbox {

/// Where a file is kept: its record, and its bytes in one of two places. They outlive the services.
struct FileStores {
  RecordStore& records;
  ByteStore& serviceBytes;
  ByteStore& outsideBytes;
};

}  // namespace varo::sandbox
