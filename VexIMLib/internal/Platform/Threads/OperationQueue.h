#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace vexim {

/// A serial queue with a thread of its own, which is started when the first operation needs it.
/// Destroying the queue waits for nothing: what is queued still runs, then the thread ends.
class OperationQueue {
public:
    using Operation = std::function<void()>;

    /// `name` names the thread.
    static std::shared_ptr<OperationQueue> create(std::string name);
    OperationQueue(const OperationQueue&) = delete;
    OperationQueue& operator=(const OperationQueue&) = delete;
    ~OperationQueue();

    /// Queues `operation`; operations run one at a time in the order given. Call from any thread.
    void addOperation(Operation operation);
    /// The same, but runs it at once, on the calling thread, when nothing else is queued or
    /// running. For what is short: a switch of threads costs more.
    void runOrAdd(Operation operation);
    /// Whether the caller is inside one of the queue's operations.
    bool isCurrent() const noexcept;
    static constexpr int maxConcurrentOperationCount() noexcept { return 1; }

    /// What the thread runs; shared with it, so that the thread may outlive the queue.
    struct State;

private:
    explicit OperationQueue(std::string name);
    std::shared_ptr<State> state_;
};

}  // namespace vexim
