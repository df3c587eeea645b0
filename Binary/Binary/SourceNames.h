#pragma once

#include "Binary/Binary/BinaryLogger.h"
#include "Platform/Common/NetworkError.h"
#include "Platform/Foundation/Array.h"
#include "Platform/Foundation/Data.h"
#include "Platform/Foundation/Error.h"
#include "Platform/Foundation/Mutex.h"
#include "Platform/Foundation/Result.h"
#include "Platform/Foundation/Value.h"
#include "Platform/TaskEngine/VSTask.h"
#include "Platform/TaskEngine/VSTaskError.h"

/// What most source files of Binary/ begin with: the platform's names for values, errors and tasks,
/// and the logger. For source files only; a header that included it would hand these names on to
/// whoever includes that header.
namespace varo::binary {

using platform::Array;
using platform::Data;
using platform::Dictionary;
using platform::DictionaryEntry;
using platform::Error;
using platform::ErrorPtr;
using platform::LogLevel;
using platform::MutexLock;
using platform::NetworkError;
using platform::NetworkErrorPtr;
using platform::Result;
using platform::TaskState;
using platform::Value;
using platform::VSTask;
using platform::VSTaskError;

[[nodiscard]] inline BinaryLogger& logger() { return BinaryLogger::sharedInstance(); }

}  // namespace varo::binary
