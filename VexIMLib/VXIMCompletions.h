#pragma once

#include <cstdint>
#include <functional>

#include "VexIMLib/Foundation/Error.h"
#include "VexIMLib/Foundation/Value.h"

// The callback types of asynchronous operations. A callback may be empty. All of them run on the
// main queue. A completion runs at most once, and exactly once unless the operation says otherwise.

/// On success (true, nullptr), on failure (false, the error). A few operations can fail without an
/// error; their comments say so.
using VXIMBooleanCompletion = std::function<void(bool succeeded, vexim::ErrorPtr error)>;

/// On success (the result, nullptr), on failure (nil, the error).
using VXIMResultCompletion = std::function<void(vexim::Value result, vexim::ErrorPtr error)>;

/// Receives the progress in percent, any number of times. A value may repeat. It means nothing if
/// the total size is unknown.
using VXIMProgress = std::function<void(std::int32_t percent)>;
