#include "VexIMLib/Foundation/UntoldError.h"

#include <utility>

namespace vexim {
namespace {

// Per thread, so that asking from another one finds nothing and races with nobody.
thread_local ErrorPtr untold;

}  // namespace

UntoldError::UntoldError(ErrorPtr error) : outer_(std::exchange(untold, std::move(error))) {}

UntoldError::~UntoldError() { untold = std::move(outer_); }

ErrorPtr UntoldError::current() { return untold; }

}  // namespace vexim
