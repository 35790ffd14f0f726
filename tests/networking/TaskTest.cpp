// What becomes of a request's task: cancelled from outside, finished, or begun on an old platform.

#include <algorithm>
#include <atomic>
#include <thread>

#include "VexIMLib/Foundation/MainQueue.h"
#include "VexIMLib/internal/Networking/VXIMHTTPRequest.h"
#include "VexIMLib/internal/Networking/VXIMRequest.h"
#include "VexIMLib/internal/Networking/VXIMURLSessionDataDelegate.h"
#include "VexIMLib/internal/Networking/VXIMURLSessionManager.h"
#include "VexIMLib/internal/Platform/Facts/DeviceInfo.h"
#include "networking/NetworkingFixture.h"
#include "support/Completions.h"
#include "support/Eventually.h"

using namespace vexim;
using namespace vexim::testing;

namespace {

/// An object that an application captured in a callback. Records on which thread it is destroyed.
class Captured {
public:
    explicit Captured(std::string& death) : death_(death) {}
    ~Captured() {
        death_ = MainQueue::shared().isMainThread() ? "on the main thread" : "elsewhere";
    }

private:
    std::string& death_;
};

TEST_F(RequestTest, ATaskCancelledFromOutsideSaysNothingAndLetsItsCallbackGo) {
    std::atomic<bool> arrived{false};
    serve([&](Connection& connection) {
        connection.readRequest();
        connection.write("HTTP/1.1 200 OK\r\nContent-Length: 10\r\n\r\n{\"a\"");
        arrived = true;
        connection.waitForClose();
    });
    std::string death;
    auto request = VXIMRequest::request();
    auto task = VXIMURLSessionManager::defaultManager()->dataTaskWithRequest(
        *request, [object = std::make_shared<Captured>(death)](const Value&, const ErrorPtr&) {
            ADD_FAILURE() << "called";
        });
    task->resume();
    ASSERT_TRUE(eventuallyElsewhere([&] { return arrived.load(); }));
    EXPECT_EQ(death, "");
    task->cancel();
    EXPECT_TRUE(eventually([&] { return !death.empty(); }));
    EXPECT_EQ(death, "on the main thread");
}

TEST_F(RequestTest, FinishedDelegatesStayUnlessToldOtherwiseButNeverTheirCallbacks) {
    answerEverything(200, "[1]");
    auto manager = VXIMURLSessionManager::init();
    auto object = std::make_shared<int>(5);
    const auto finish = [&] {
        bool done = false;
        auto task = manager->dataTaskWithRequest(
            *VXIMRequest::request(),
            once([&, object](const Value&, const ErrorPtr&) { done = true; }));
        task->resume();
        EXPECT_TRUE(eventuallyElsewhere([&] { return done && object.use_count() == 1; }));
        return task;
    };
    auto kept = finish();
    ASSERT_TRUE(manager->delegateForTask(kept));
    EXPECT_EQ(manager->delegateForTask(kept)->result(), Value(Array{1}));
    EXPECT_TRUE(manager->delegateForTask(kept)->startDate());

    manager->setKeepsFinishedDelegates(false);
    auto dropped = finish();
    EXPECT_TRUE(eventuallyElsewhere([&] { return !manager->delegateForTask(dropped); }));
    EXPECT_TRUE(manager->delegateForTask(kept));
    manager->removeDelegateForTask(kept);
    EXPECT_FALSE(manager->delegateForTask(kept));
}

TEST_F(RequestTest, OldPlatformsCreateOneTaskAtATime) {
    const auto before = vexim::deviceInfo();
    auto old = before;
    old.foundationVersionNumber = 1140.10;
    vexim::setDeviceInfo(old);
    int inside = 0;  // not atomic: a race would show in tsan
    int most = 0;
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([&] {
            for (int round = 0; round < 100; ++round) {
                url_session_manager_create_task_safely([&] {
                    most = std::max(most, ++inside);
                    std::this_thread::yield();
                    --inside;
                });
            }
        });
    }
    for (auto& thread : threads) thread.join();
    EXPECT_EQ(most, 1);
    vexim::setDeviceInfo(before);
}

}  // namespace
