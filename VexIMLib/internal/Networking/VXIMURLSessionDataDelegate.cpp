#include "VexIMLib/internal/Networking/VXIMURLSessionDataDelegate.h"

#include <cmath>
#include <thread>
#include <utility>

#include "VexIMLib/Foundation/MainQueue.h"
#include "VexIMLib/internal/Configuration/Meter.h"
#include "VexIMLib/internal/Networking/NetworkingErrors.h"
#include "VexIMLib/internal/Platform/Facts/EventNames.h"
#include "VexIMLib/internal/Platform/Facts/EventRecord.h"
#include "VexIMLib/internal/Platform/Facts/URLErrors.h"

namespace {

/// `error` is the transport's error, or nullptr.
vexim::RequestOutcome outcomeOf(std::int64_t status, const vexim::ErrorPtr& error) {
    using vexim::RequestOutcome;
    if (error && error->is(vexim::kURLErrorDomain, vexim::URLErrorCancelled))
        return RequestOutcome::Cancelled;
    if (error || status == 0) return RequestOutcome::NoAnswer;
    if (status >= 200 && status < 300) return RequestOutcome::Success;
    return status >= 400 && status < 500 ? RequestOutcome::Refused : RequestOutcome::Failed;
}

}  // namespace

const std::shared_ptr<vexim::OutputStream>& VXIMURLSessionDataDelegate::outputStream() {
    if (!outputStream_) outputStream_ = vexim::OutputStream::toMemory();
    return outputStream_;
}

void VXIMURLSessionDataDelegate::addStateObserverForTask(
    const std::shared_ptr<vexim::URLSessionTask>& task) {
    task->addObserver(shared_from_this(), "state",
                      [this](vexim::Object& object, const vexim::KeyValueChange& change) {
                          if (change.newValue.longLongValue() !=
                              static_cast<int>(vexim::URLSessionTaskState::Running))
                              return;
                          startDate_ = vexim::Date::now();
                          if (meter_) beganAt_ = vexim::Clock::shared()->now();
                          object.removeObserver(this, "state");
                      });
}

void VXIMURLSessionDataDelegate::openOutputStream() { outputStream()->open(); }

void VXIMURLSessionDataDelegate::closeOutputStream() { outputStream()->close(); }

bool VXIMURLSessionDataDelegate::writeData(const vexim::Data& bytes) {
    const auto& stream = outputStream();
    while (!stream->hasSpaceAvailable()) {
        if (stream->streamError()) return false;
        std::this_thread::yield();
    }
    // Pass on the whole data, so that a stream in memory can share the bytes instead of copying
    // them.
    auto written = stream->writeData(bytes);
    for (auto rest = bytes.span(); written != -1;) {
        rest = rest.subspan(static_cast<std::size_t>(written));
        if (rest.empty()) return true;
        written = stream->write(rest.data(), rest.size());
    }
    // The next write, or the task's end, reports the failure.
    return true;
}

void VXIMURLSessionDataDelegate::taskDidCancel() { closeOutputStream(); }

void VXIMURLSessionDataDelegate::parseResultOfTask(const vexim::URLSessionTask& task) {
    const auto status = statusOfTask(task);
    if (status >= 200 && status < 300) {
        if (result_.isNil()) result_ = outputStream()->dataWrittenToMemory();
        return;
    }
    if (const auto response = task.response(); response && !error_) {
        // The URL is a part of the error. Code that shows or logs the user information must know
        // what is in its queries.
        error_ = vexim::rest::badServerResponse(
            status, vexim::failingURLText(response->url, vexim::FailingQuery::Kept));
    }
}

void VXIMURLSessionDataDelegate::logFailedTask(const vexim::URLSessionTask& task,
                                               const vexim::ErrorPtr& error) {
    if (!error) return;
    // Record neither path nor query, because they contain ids and tokens.
    const auto request = task.originalRequest();
    vexim::Dictionary details{
        {"method", request->method}, {"domain", error->domain()}, {"code", error->code()}};
    if (const auto underlying = error->underlyingError())
        details.set("underlying", underlying->code());
    if (request->url) details.set("host", request->url->host());
    if (const auto status = statusOfTask(task); status != 0) details.set("status", status);
    details.set("seconds", std::round(duration_ * 1000) / 1000);
    vexim::EventRecord::ofRequests().add(vexim::events::kRequestFailed, std::move(details));
}

vexim::ErrorPtr VXIMURLSessionDataDelegate::errorWithError(const vexim::ErrorPtr& error,
                                                           const vexim::ErrorPtr& underlying) {
    if (!error) return underlying;
    if (!underlying) return error;
    if (!error->info(vexim::kUnderlyingErrorKey).isNil()) return error;
    auto userInfo =
        error->userInfo().isDictionary() ? *error->userInfo().asDictionary() : vexim::Dictionary{};
    userInfo.set(vexim::kUnderlyingErrorKey, underlying);
    return vexim::Error::make(error->domain(), error->code(), std::move(userInfo));
}

void VXIMURLSessionDataDelegate::dataTaskDidReceiveResponse(
    vexim::URLSessionTask&, const vexim::HTTPURLResponsePtr&,
    vexim::URLSessionDelegate::DispositionHandler completionHandler) {
    openOutputStream();
    completionHandler(vexim::URLSessionResponseDisposition::Allow);
}

void VXIMURLSessionDataDelegate::dataTaskDidReceiveData(vexim::URLSessionTask& task,
                                                        const vexim::Data& data) {
    if (!writeData(data)) task.cancel();
}

void VXIMURLSessionDataDelegate::taskDidSendBodyData(vexim::URLSessionTask&, std::int64_t,
                                                     std::int64_t, std::int64_t) {}

void VXIMURLSessionDataDelegate::taskDidCompleteWithError(vexim::URLSessionTask& task,
                                                          const vexim::ErrorPtr& error) {
    if (meter_) count(task, error);
    error_ = error;
    if (error_ && error_->is(vexim::kURLErrorDomain, vexim::URLErrorCancelled)) {
        auto streamError = outputStream()->streamError();
        if (!streamError) {  // cancelled from outside
            taskDidCancel();
            if (transfer_) return deliver(nullptr, error_);
            return dropCallbacks();
        }
        error_ = std::move(streamError);  // by ourselves, after a write failed
    }
    // Do not parse an answer that is too long (that could take many times its length), and do not
    // keep it.
    if (error_ && error_->is(vexim::kURLErrorDomain, vexim::URLErrorDataLengthExceedsMaximum))
        outputStream_ = nullptr;
    parseResultOfTask(task);
    closeOutputStream();
    duration_ = vexim::Date::now().timeIntervalSince1970() -
                startDate_.value_or(vexim::Date()).timeIntervalSince1970();
    logFailedTask(task, error_);
    deliver(result_, error_);
}

void VXIMURLSessionDataDelegate::count(const vexim::URLSessionTask& task,
                                       const vexim::ErrorPtr& error) const {
    using vexim::Metric;
    const auto duration = vexim::Clock::shared()->now() - beganAt_;
    meter_->observe(Metric::RequestDuration,
                    static_cast<std::size_t>(outcomeOf(statusOfTask(task), error)), duration);
    meter_->add(Metric::RequestsSentBytes, 0, static_cast<std::uint64_t>(task.countOfBytesSent()));
    meter_->add(Metric::RequestsReceivedBytes, 0,
                static_cast<std::uint64_t>(task.countOfBytesReceived()));
}

std::int64_t VXIMURLSessionDataDelegate::statusOfTask(const vexim::URLSessionTask& task) {
    const auto response = task.response();
    return response ? response->statusCode : 0;
}

void VXIMURLSessionDataDelegate::deliver(vexim::Value result, vexim::ErrorPtr error) {
    vexim::MainQueue::shared().async([completion = std::exchange(completionBlock_, nullptr),
                                      result = std::move(result), error = std::move(error)] {
        if (completion) completion(result, error);
    });
    dropCallbacks();
}

void VXIMURLSessionDataDelegate::dropCallbacks() {
    // Destroy the application's objects where their callbacks would have run.
    if (completionBlock_ || transfer_) {
        vexim::MainQueue::shared().async([dropped = std::exchange(completionBlock_, nullptr),
                                          transfer = std::exchange(transfer_, nullptr)] {});
    }
}
