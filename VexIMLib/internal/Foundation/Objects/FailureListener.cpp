#include "VexIMLib/Foundation/FailureListener.h"

#include <utility>

namespace vexim {
namespace {

// One per thread, because an operation checks on the thread that calls it.
thread_local FailureListener::Tell listening;

}  // namespace

FailureListener::FailureListener(Tell tell) : outer_(std::exchange(listening, std::move(tell))) {}

FailureListener::~FailureListener() { listening = std::move(outer_); }

FailureListener::Tell FailureListener::current() { return listening; }

}  // namespace vexim
