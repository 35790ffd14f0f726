#pragma once

#include <gtest/gtest.h>

#include <condition_variable>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <utility>

#include "VexIMLib/internal/Platform/Loading/URLSession.h"
#include "support/Pass.h"

namespace vexim::testing {

/// The events of a task, as its delegate received them.
struct TaskStory {
    std::string calls;  ///< one letter a call: s(ent) r(esponse) d(ata) h(op) e(nd)
    int status = 0;
    std::string body;
    std::int64_t sent = 0;
    std::int64_t toSend = 0;  ///< as told with what was sent
    int ends = 0;
    ErrorPtr error;

    std::int64_t code() const { return error ? error->code() : 0; }
    std::string detail() const { return error ? error->description() : ""; }
};

/// A session with a delegate that records its calls, and a way to wait for the end of tasks.
class SessionProbe : public URLSessionDelegate, public std::enable_shared_from_this<SessionProbe> {
public:
    static std::shared_ptr<SessionProbe> make(URLSessionConfiguration configuration = {}) {
        auto probe = std::make_shared<SessionProbe>();
        probe->session = URLSession::create(std::move(configuration), probe,
                                            OperationQueue::create("test-delegate"));
        return probe;
    }
    static std::shared_ptr<SessionProbe> trusting(const std::string& authorityPEM) {
        auto probe = make();
        probe->trust = TrustChoice::of(Dictionary{{"caPEM", authorityPEM}});
        return probe;
    }

    std::shared_ptr<URLSession> session;
    TrustChoice trust;  ///< for the requests that this makes
    // Set before a task is resumed; empty ones do what the delegate does by itself.
    std::function<void(const TaskPtr&, DispositionHandler)> onResponse;
    std::function<void(const TaskPtr&, const Data&)> onData;
    std::function<void(const TaskPtr&)> onSent;
    std::function<void(const TaskPtr&, const URLRequest&, RedirectionHandler)> onRedirection;

    TaskPtr task(const std::string& url) {
        return session->dataTaskWithRequest(trusting(request(url)));
    }
    static URLRequest request(const std::string& url) {
        URLRequest request;
        request.url = URL::parse(url);
        request.timeout = std::chrono::seconds(20);
        return request;
    }
    /// Resumes a task for `request` and waits for its end.
    TaskStory load(URLRequest request) {
        return run(session->dataTaskWithRequest(trusting(std::move(request))));
    }
    TaskStory load(const std::string& url) { return load(request(url)); }
    TaskStory run(const TaskPtr& task) {
        task->resume();
        return waitForEnd(task);
    }
    TaskStory waitForEnd(const TaskPtr& task) {
        std::unique_lock lock(mutex_);
        changed_.wait_for(lock, std::chrono::seconds(60),
                          [&] { return stories_[task->taskIdentifier()].ends > 0; });
        return stories_[task->taskIdentifier()];
    }
    bool waitUntil(const TaskPtr& task, const std::function<bool(const TaskStory&)>& predicate) {
        std::unique_lock lock(mutex_);
        const TaskStory& story = stories_[task->taskIdentifier()];
        changed_.wait_for(lock, std::chrono::seconds(60),
                          [&] { return predicate(story) || story.ends > 0; });
        return predicate(story);
    }
    TaskStory story(const TaskPtr& task) {
        const std::lock_guard lock(mutex_);
        return stories_[task->taskIdentifier()];
    }

    void taskDidSendBodyData(URLSession&, const TaskPtr& task, std::int64_t bytes,
                             std::int64_t total, std::int64_t expected) override {
        note(task, 's', [&](TaskStory& story) {
            story.sent += bytes;
            story.toSend = expected;
            if (story.sent != total) story.calls += '!';
        });
        if (onSent) onSent(task);
    }
    void dataTaskDidReceiveResponse(URLSession&, const TaskPtr& task,
                                    const HTTPURLResponsePtr& response,
                                    DispositionHandler completionHandler) override {
        note(task, 'r', [&](TaskStory& story) { story.status = response->statusCode; });
        if (onResponse) return onResponse(task, std::move(completionHandler));
        completionHandler(URLSessionResponseDisposition::Allow);
    }
    void dataTaskDidReceiveData(URLSession&, const TaskPtr& task, const Data& data) override {
        if (onData) onData(task, data);
        note(task, 'd', [&](TaskStory& story) { story.body.append(data.view()); });
    }
    void taskWillPerformHTTPRedirection(URLSession&, const TaskPtr& task, const HTTPURLResponsePtr&,
                                        const URLRequest& newRequest,
                                        RedirectionHandler completionHandler) override {
        note(task, 'h', [](TaskStory&) {});
        if (onRedirection) return onRedirection(task, newRequest, std::move(completionHandler));
        completionHandler(newRequest);
    }
    void taskDidCompleteWithError(URLSession&, const TaskPtr& task,
                                  const ErrorPtr& error) override {
        note(task, 'e', [&](TaskStory& story) {
            ++story.ends;
            story.error = error;
        });
    }

private:
    URLRequest trusting(URLRequest request) const {
        request.trust = trust;
        return request;
    }
    void note(const TaskPtr& task, char call, const std::function<void(TaskStory&)>& change) {
        EXPECT_TRUE(session->delegateQueue()->isCurrent()) << call;
        const std::lock_guard lock(mutex_);
        TaskStory& story = stories_[task->taskIdentifier()];
        if (story.calls.empty() || story.calls.back() != call || call == 'e' || call == 'h')
            story.calls += call;
        change(story);
        changed_.notify_all();
    }

    std::mutex mutex_;
    std::condition_variable changed_;
    std::map<std::int64_t, TaskStory> stories_;
};

}  // namespace vexim::testing
