#pragma once

#include <functional>

#include "VexIMLib/Foundation/Error.h"
#include "VexIMLib/Foundation/Export.h"

namespace vexim {

/// Who waits for an operation, and would hear why its completion is not going to run. A login over
/// a connection that failed is one: its completion waits for the service's answer, for ever. An
/// operation of that kind takes the listener where it is called, and tells it the cause when it
/// comes. The async styles then fail with it; the completion still does not run.
///
///     const vexim::FailureListener listener([](const vexim::ErrorPtr& cause) { … });
///     client->loginWithUserId("alice", completion);
class VEXIM_EXPORT FailureListener {
public:
    /// Takes the cause; copies may be kept.
    using Tell = std::function<void(const ErrorPtr& cause)>;

    /// For the operations that this thread calls until it is destroyed; one inside another wins.
    /// `tell` runs on the main queue, at most once for each operation.
    explicit FailureListener(Tell tell);
    ~FailureListener();
    FailureListener(const FailureListener&) = delete;
    FailureListener& operator=(const FailureListener&) = delete;

    /// For operations: what this thread's caller wants to be told by; empty when nobody listens.
    static Tell current();

private:
    Tell outer_;
};

}  // namespace vexim
