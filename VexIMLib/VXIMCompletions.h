#pragma once

#include <cstdint>
#include <functional>

#include "VexIMLib/Foundation/Error.h"
#include "VexIMLib/Foundation/Value.h"

// The shapes of the callbacks that end or accompany an asynchronous operation. An empty one is
// allowed and skipped. All of them run on the main queue. A completion runs at most once, and
// exactly once unless the operation says otherwise.

/// On success (true, nullptr), on failure (false, the error). A few operations can fail without an
/// error; they say so.
using VXIMBooleanCompletion = std::function<void(bool succeeded, vexim::ErrorPtr error)>;

/// On success (the result, nullptr), on failure (nil, the error).
using VXIMResultCompletion = std::function<void(vexim::Value result, vexim::ErrorPtr error)>;

/// A percentage as the transport counts it, any number of times: a value may repeat, and when the
/// whole size is unknown it means nothing.
using VXIMProgress = std::function<void(std::int32_t percent)>;
