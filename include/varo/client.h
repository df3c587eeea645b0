#pragma once

/// The whole client.
#include "varo/files.h"
#include "varo/runtime.h"
#include "varo/version.h"
