#pragma once

#if __cplusplus < 202002L && (!defined(_MSVC_LANG) || _MSVC_LANG < 202002L)
#error "VaroBinary needs C++20 or later: compile with -std=c++20"
#endif

/// The whole client.
#include "varo/blobs.h"
#include "varo/credentials.h"
#include "varo/files.h"
#include "varo/objects.h"
#include "varo/runtime.h"
#include "varo/version.h"
