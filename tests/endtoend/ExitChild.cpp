// A program that exits while the library is at work: `exit_child HOW ORIGIN` begins what HOW says,
// waits for a line on its standard input, prints the monotonic clock and exits.

#include <poll.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "VexIMLib/VexIMLib.h"

namespace {

using vexim::MainQueue;

std::vector<std::shared_ptr<void>> held;  // still there when the process exits

void fetch() {
    for (int i = 0; i < 20; ++i) {
        auto group = VXIMGroup::groupWithId("g" + std::to_string(i));
        group->fetchWithBlock([](bool, const vexim::ErrorPtr&) {});
        held.push_back(group);
    }
}

void logIn() {
    auto client = VXIMClient::clientWithConfiguration(vxim_configuration.get());
    client->loginWithUserId("u1", [](bool, const vexim::ErrorPtr&) {});
    held.push_back(client);
}

void upload() {
    const auto path =
        std::filesystem::temp_directory_path() / ("vexim-exit-" + std::to_string(::getpid()));
    std::ofstream(path) << std::string(20'000'000, 'x');
    auto client = VXIMClient::clientWithConfiguration(vxim_configuration.get());
    const auto message = VXIMMessage::messageWithVideoFileAtPath(path.string());
    message->receiver()->setUserId("u2");
    client->sendSystemMessage(
        message, [](std::int32_t) {}, [](bool, const vexim::ErrorPtr&) {});
    std::atexit([] {
        std::filesystem::remove(std::filesystem::temp_directory_path() /
                                ("vexim-exit-" + std::to_string(::getpid())));
    });
}

bool toldToExit() {
    pollfd input{STDIN_FILENO, POLLIN, 0};
    return ::poll(&input, 1, 0) > 0;
}

[[noreturn]] void leave() {
    timespec now{};
    ::clock_gettime(CLOCK_MONOTONIC, &now);
    std::printf("%lld\n", static_cast<long long>(now.tv_sec) * 1'000'000'000 + now.tv_nsec);
    std::fflush(stdout);
    std::exit(0);
}

}  // namespace

int main(int, char** argv) {
    const std::string_view how = argv[1];
    auto configuration = VXIMClientConfiguration::defaultConfiguration();
    configuration->setAppId("app");
    configuration->setClientKey("key");
    configuration->setInstallationId("install");
    configuration->setSocketURL(vexim::URL::parse(argv[2]));
    vxim_configuration = configuration;

    if (how.find("requests") != how.npos) fetch();
    if (how.find("login") != how.npos) logIn();
    if (how.find("upload") != how.npos) upload();
    std::thread waiting;
    if (how.find("sync") != how.npos) {
        waiting = std::thread([] { MainQueue::shared().sync([] { leave(); }); });
        waiting.detach();
    }
    std::puts("begun");
    std::fflush(stdout);
    MainQueue::shared().runUntil([] { return false; }, std::chrono::milliseconds(1));
    while (!toldToExit())
        MainQueue::shared().runUntil([] { return false; }, std::chrono::milliseconds(1));
    if (how.find("released") != how.npos) held.clear();
    if (how.find("callback") != how.npos) {
        MainQueue::shared().async([] { leave(); });
        MainQueue::shared().run();
    }
    leave();
}
