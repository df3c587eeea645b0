#pragma once

/// The whole client.
#include "varo/blobs.h"
#include "varo/files.h"
#include "varo/objects.h"
#include "varo/runtime.h"
#include "varo/version.h"
