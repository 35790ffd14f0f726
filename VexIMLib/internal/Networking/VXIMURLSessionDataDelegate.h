#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>

#include "VexIMLib/Foundation/Clock.h"
#include "VexIMLib/Foundation/Data.h"
#include "VexIMLib/Foundation/Date.h"
#include "VexIMLib/Foundation/Error.h"
#include "VexIMLib/Foundation/Object.h"
#include "VexIMLib/Foundation/Value.h"
#include "VexIMLib/VXIMCompletions.h"
#include "VexIMLib/internal/Platform/Files/OutputStream.h"
#include "VexIMLib/internal/Platform/Loading/URLSession.h"

class VXIMTransfer;

namespace vexim {
class Meter;
}

/// One task's delegate: collects the body in memory, turns a status outside 2xx into an error and
/// delivers the completion on the main queue. Everything but the factory and the setters runs on
/// the session's delegate queue, one at a time.
///
/// It has more than 25 functions: half of them say what the task is for, and the session calls the
/// others.
class VXIMURLSessionDataDelegate : public vexim::Object {
public:
    using vexim::Object::Object;

    /// Called once, on the main queue, and then dropped. Never called for a task that was cancelled
    /// from outside, unless it has a handle.
    void setCompletionBlock(VXIMResultCompletion completion) {
        completionBlock_ = std::move(completion);
    }
    /// With a handle, a cancellation from outside also completes, with its -999 error. nullptr at
    /// first.
    void setTransfer(std::shared_ptr<VXIMTransfer> transfer) noexcept {
        transfer_ = std::move(transfer);
    }

    /// The stream for the body's bytes: in memory, unless another was set before the response came.
    const std::shared_ptr<vexim::OutputStream>& outputStream();
    void setOutputStream(std::shared_ptr<vexim::OutputStream> stream) {
        outputStream_ = std::move(stream);
    }

    const vexim::Value& result() const noexcept { return result_; }
    void setResult(vexim::Value result) { result_ = std::move(result); }
    const vexim::ErrorPtr& error() const noexcept { return error_; }
    void setError(vexim::ErrorPtr error) { error_ = std::move(error); }
    /// When the task first ran; nullopt before.
    const std::optional<vexim::Date>& startDate() const noexcept { return startDate_; }
    /// Seconds from `startDate` to completion.
    double duration() const noexcept { return duration_; }

    /// Where to count the task; nullptr, as at first, counts it nowhere.
    void setMeter(std::shared_ptr<vexim::Meter> meter) noexcept { meter_ = std::move(meter); }

    /// Observes the task, to set `startDate` when it first runs.
    void addStateObserverForTask(const std::shared_ptr<vexim::URLSessionTask>& task);

    void openOutputStream();
    void closeOutputStream();
    /// Writes all of `bytes`, waiting for space. Returns false if the stream fails first.
    bool writeData(const vexim::Data& bytes);
    virtual void taskDidCancel();
    /// Sets `result` and `error` from the answer.
    virtual void parseResultOfTask(const vexim::URLSessionTask& task);
    /// Called for every completion. Records failed ones for the diagnosis.
    virtual void logFailedTask(const vexim::URLSessionTask& task, const vexim::ErrorPtr& error);
    /// `error` with `underlying` attached, unless it already has one. If one of them is nullptr,
    /// returns the other.
    static vexim::ErrorPtr errorWithError(const vexim::ErrorPtr& error,
                                          const vexim::ErrorPtr& underlying);

    // The manager passes on these calls from the session.
    virtual void dataTaskDidReceiveResponse(
        vexim::URLSessionTask& task, const vexim::HTTPURLResponsePtr& response,
        vexim::URLSessionDelegate::DispositionHandler completionHandler);
    virtual void dataTaskDidReceiveData(vexim::URLSessionTask& task, const vexim::Data& data);
    virtual void taskDidSendBodyData(vexim::URLSessionTask& task, std::int64_t sent,
                                     std::int64_t totalSent, std::int64_t totalExpected);
    void taskDidCompleteWithError(vexim::URLSessionTask& task, const vexim::ErrorPtr& error);

protected:
    static std::int64_t statusOfTask(const vexim::URLSessionTask& task);
    /// Drops every callback, so that a finished delegate holds no application objects.
    virtual void dropCallbacks();
    const std::shared_ptr<VXIMTransfer>& transfer() const noexcept { return transfer_; }

private:
    void count(const vexim::URLSessionTask& task, const vexim::ErrorPtr& error) const;
    void deliver(vexim::Value result, vexim::ErrorPtr error);

    VXIMResultCompletion completionBlock_;
    std::shared_ptr<vexim::OutputStream> outputStream_;
    vexim::Value result_;
    vexim::ErrorPtr error_;
    std::optional<vexim::Date> startDate_;
    double duration_ = 0;
    std::shared_ptr<vexim::Meter> meter_;
    vexim::Clock::TimePoint beganAt_;  // with a meter only
    std::shared_ptr<VXIMTransfer> transfer_;
};
