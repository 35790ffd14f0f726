#include "VexIMLib/internal/Platform/Loading/LoadRunner.h"

#include <algorithm>
#include <boost/asio/post.hpp>
#include <utility>

namespace vexim {

LoadRunner& LoadRunner::shared() {
    static auto* const runner = new LoadRunner;  // never destroyed, like the network thread
    return *runner;
}

void LoadRunner::emit(const std::shared_ptr<OperationQueue>& queue,
                      std::shared_ptr<URLLoad::Client> client, LoadEvent::Any event,
                      bool mayCallOnNetworkThread) {
    deliverSoon();
    auto batch = std::find_if(batches_.begin(), batches_.end(),
                              [&](const Batch& each) { return each.queue == queue; });
    if (batch == batches_.end()) batch = batches_.insert(batches_.end(), Batch{queue, {}, true});
    batch->events.push_back({std::move(client), std::move(event)});
    batch->mayCallOnNetworkThread = batch->mayCallOnNetworkThread && mayCallOnNetworkThread;
}

void LoadRunner::flushSoon(std::shared_ptr<URLLoad> load) {
    deliverSoon();
    withData_.push_back(std::move(load));
}

void LoadRunner::checkTimeoutsAt(Clock::TimePoint when) {
    if (timer_.isPending() && nextCheck_ <= when) return;
    nextCheck_ = when;
    timer_.startAt(when, [this] { checkTimeouts(); });
}

void LoadRunner::deliverSoon() {
    if (std::exchange(deliveryPosted_, true)) return;
    // Runs after the handlers that are ready now, which are this turn of the loop. If other
    // answers may arrive meanwhile, it runs after those, because passing on each one costs a
    // thread switch.
    boost::asio::post(NetworkThreadAsio::ioContext(), [this] {
        if (running_.size() <= 1) return deliverBatches();
        boost::asio::post(NetworkThreadAsio::ioContext(), [this] { deliverBatches(); });
    });
}

void LoadRunner::deliverBatches() {
    for (const auto& load : std::exchange(withData_, {})) load->flushData();
    deliveryPosted_ = false;
    for (auto& batch : std::exchange(batches_, {})) {
        // shared, because a std::function must be copyable
        auto events = std::make_shared<std::vector<Event>>(std::move(batch.events));
        auto deliver = [events = std::move(events)] {
            for (auto& [client, event] : *events) {
                client->loadDidProgress(std::move(event));
                client = nullptr;
            }
        };
        if (batch.mayCallOnNetworkThread) {
            batch.queue->runOrAdd(std::move(deliver));
        } else {
            batch.queue->addOperation(std::move(deliver));
        }
    }
}

void LoadRunner::checkTimeouts() {
    const auto now = Clock::shared()->now();
    auto next = Clock::TimePoint::max();
    // a load that ends is removed from the set
    const std::vector<URLLoad*> loads(running_.begin(), running_.end());
    for (URLLoad* const load : loads) next = std::min(next, load->checkTimeouts(now));
    if (next != Clock::TimePoint::max()) checkTimeoutsAt(next);
}

}  // namespace vexim
