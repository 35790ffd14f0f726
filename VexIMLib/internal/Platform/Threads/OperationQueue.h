#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace vexim {

/// A serial queue with its own thread, which starts with the first operation. Destroying the queue
/// does not wait: queued operations still run, then the thread ends.
class OperationQueue {
public:
    using Operation = std::function<void()>;

    /// `name` is the name of the thread.
    static std::shared_ptr<OperationQueue> create(std::string name);
    OperationQueue(const OperationQueue&) = delete;
    OperationQueue& operator=(const OperationQueue&) = delete;
    ~OperationQueue();

    /// Queues `operation`; operations run one at a time in the order given. Call from any thread.
    void addOperation(Operation operation);
    /// The same, but if nothing else is queued or running, it runs at once on the calling thread.
    /// For short operations, which cost less than a thread switch.
    void runOrAdd(Operation operation);
    /// Whether the caller is inside one of the queue's operations.
    bool isCurrent() const noexcept;

    /// The state of the queue, shared with its thread, which may outlive the queue.
    struct State;

private:
    explicit OperationQueue(std::string name);
    std::shared_ptr<State> state_;
};

}  // namespace vexim
