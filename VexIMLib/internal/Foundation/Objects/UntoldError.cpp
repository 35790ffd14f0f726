#include "VexIMLib/Foundation/UntoldError.h"

#include <utility>

namespace vexim {
namespace {

// One per thread, so that other threads find nothing and there is no race.
thread_local ErrorPtr untold;

}  // namespace

UntoldError::UntoldError(ErrorPtr error) : outer_(std::exchange(untold, std::move(error))) {}

UntoldError::~UntoldError() { untold = std::move(outer_); }

ErrorPtr UntoldError::current() { return untold; }

}  // namespace vexim
