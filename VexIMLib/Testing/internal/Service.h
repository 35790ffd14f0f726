#pragma once

#include <chrono>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "VexIMLib/Testing/FakeService.h"
#include "VexIMLib/Testing/internal/Live.h"
#include "VexIMLib/Testing/internal/Recording.h"
#include "VexIMLib/Testing/internal/Rest.h"
#include "VexIMLib/Testing/internal/Store.h"

namespace vexim::testing::fake {

/// A test's script for requests.
struct Plan {
    std::string method;   // empty: any
    std::string pattern;  // empty: any
    std::size_t times = 1;
    std::chrono::nanoseconds delay{0};
    std::optional<FakeService::Fault> fault = std::nullopt;
    std::function<FakeService::Answer(const FakeService::Request&)> make = nullptr;
};

/// How one request is handled.
struct Reply {
    std::chrono::nanoseconds delay{0};
    std::optional<FakeService::Fault> fault;
    std::optional<FakeService::Answer> answer;  // nullopt: the handshake goes on
};

/// The body to send; throws if it cannot be JSON.
std::string bodyText(const FakeService::Answer& answer);

/// The service without its sockets. Everything in it is used on one thread.
class Service {
public:
    /// `recorded` is called after each request, login and message that came.
    Service(const FakeService::Options& options, std::function<void()> recorded);

    Reply reply(const FakeService::Request& request, bool isHandshake);
    void reset();

    const FakeService::Options& options;
    Store store;
    Live live;
    std::vector<Plan> plans;
    Recording<FakeService::Request> requests;

private:
    std::optional<Plan> takePlan(const FakeService::Request& request);

    const std::function<void()> recorded_;
    Rest rest_;
};

}  // namespace vexim::testing::fake
