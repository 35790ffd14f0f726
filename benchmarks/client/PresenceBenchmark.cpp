// One friend's presence event, in an application that holds the infos of very many friends, and in
// one that holds a few.

#include <benchmark/benchmark.h>

#include <memory>
#include <string>
#include <vector>

#include "VexIMLib/VexIMLib.h"
#include "support/Comparison.h"

namespace {

/// Keeps `count` infos alive, and no others.
const std::vector<std::shared_ptr<VXIMFriendInfo>>& infosAlive(std::size_t count) {
    static std::vector<std::shared_ptr<VXIMFriendInfo>> infos;
    while (infos.size() > count) infos.pop_back();
    while (infos.size() < count)
        infos.push_back(VXIMFriendInfo::infoWithId("user" + std::to_string(infos.size())));
    return infos;
}

void presenceEvents(benchmark::State& state, std::size_t count) {
    const auto& infos = infosAlive(count);
    const vexim::Dictionary event{{"id", "user5"}};
    bool online = false;
    for (auto _ : state) {
        online = !online;
        const char* name = online ? VXIMFriendOnlineNotification : VXIMFriendOfflineNotification;
        vexim::NotificationCenter::defaultCenter().post(name, nullptr, event);
        if (infos[5]->online() != online) state.SkipWithError("the event was not heard");
    }
}

const bool kPresence = vexim::bench::compare(
    "presence event, 100 000 infos against 10",
    [](benchmark::State& state) { presenceEvents(state, 100'000); },
    [](benchmark::State& state) { presenceEvents(state, 10); }, 2.0);

}  // namespace
