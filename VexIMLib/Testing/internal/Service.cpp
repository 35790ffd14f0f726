#include "VexIMLib/Testing/internal/Service.h"

#include <algorithm>
#include <stdexcept>

#include "VexIMLib/Foundation/JSON.h"

namespace vexim::testing::fake {

std::string bodyText(const FakeService::Answer& answer) {
    if (const Data* const bytes = answer.body.asData()) return std::string(bytes->view());
    const Value body = answer.body.isNil() ? Value(Dictionary{{"success", true}}) : answer.body;
    auto [text, error] = writeJSON(body, JSONFragments::Allow);
    if (error)
        throw std::invalid_argument("the answer cannot be written as JSON: " +
                                    error->localizedDescription());
    return text;
}

Service::Service(const FakeService::Options& given, std::function<void()> recorded)
    : options(given),
      live(options, store, recorded),
      recorded_(std::move(recorded)),
      rest_(options, store, live) {
    store.seed();
}

Reply Service::reply(const FakeService::Request& request, bool isHandshake) {
    const bool isLive = request.path.starts_with("/socket.io/");
    if (!isLive) requests.add(request);
    Reply reply;
    const auto plan = takePlan(request);
    if (plan) {
        reply.delay = plan->delay;
        reply.fault = plan->fault;
    }
    const bool isLost = reply.fault && *reply.fault != FakeService::Fault::CutShort;
    try {
        if (plan && plan->make) {
            reply.answer = plan->make(request);
        } else if (!isLive) {
            reply.answer = isLost ? FakeService::Answer{} : rest_.answer(request);
        } else if (!isHandshake) {  // polling
            reply.answer = {400, Dictionary{{"code", 0}, {"message", "Transport unknown"}}, {}};
        } else if (options.socketIOLine > 2 && Query(request.query).get("EIO") == "3") {
            reply.answer = {
                400, Dictionary{{"code", 5}, {"message", "Unsupported protocol version"}}, {}};
        }
        // try it here, where an exception still becomes an answer
        if (reply.answer) bodyText(*reply.answer);
    } catch (const std::exception& exception) {
        reply.answer = {
            500, Dictionary{{"errorCode", 1901}, {"errorMessage", exception.what()}}, {}};
    }
    recorded_();
    return reply;
}

std::optional<Plan> Service::takePlan(const FakeService::Request& request) {
    const auto found = std::ranges::find_if(plans, [&](const Plan& plan) {
        return (plan.method.empty() || plan.method == request.method) &&
               (plan.pattern.empty() || match(plan.pattern, request.path));
    });
    if (found == plans.end()) return std::nullopt;
    Plan plan = *found;
    if (found->times != FakeService::kAlways && --found->times == 0) plans.erase(found);
    return plan;
}

void Service::reset() {
    live.reset();
    plans.clear();
    requests.clear();
    store = Store();
    store.seed();
    rest_.forgetFiles();
    recorded_();
}

}  // namespace vexim::testing::fake
