#pragma once

#include <functional>

#include "VexIMLib/Foundation/Error.h"
#include "VexIMLib/Foundation/Export.h"

namespace vexim {

/// Reports why the completion of an operation will never run. For example, a login whose connection
/// failed waits for an answer that cannot come. Such an operation looks for a listener when it is
/// called, and reports the cause to it. The async styles then fail with this cause. The completion
/// still does not run.
///
///     const vexim::FailureListener listener([](const vexim::ErrorPtr& cause) { … });
///     client->loginWithUserId("alice", completion);
class VEXIM_EXPORT FailureListener {
public:
    /// Receives the cause. You may keep copies.
    using Tell = std::function<void(const ErrorPtr& cause)>;

    /// Listens to the operations that this thread calls while this object lives. If listeners are
    /// nested, the inner one is used. `tell` runs on the main queue, at most once for each
    /// operation.
    explicit FailureListener(Tell tell);
    ~FailureListener();
    FailureListener(const FailureListener&) = delete;
    FailureListener& operator=(const FailureListener&) = delete;

    /// For operations: the function of the current listener on this thread; empty if there is none.
    static Tell current();

private:
    Tell outer_;
};

}  // namespace vexim
