// A REST request over HTTPS, from composing and signing it until its answer is parsed and delivered
// on the main queue. It is compared with libcurl's multi interface on asio, which only gets the
// bytes. CPU time of all threads; the server is another process.

#include <chrono>
#include <cstdlib>
#include <memory>

#include "VexIMLib/Foundation/MainQueue.h"
#include "VexIMLib/Foundation/URL.h"
#include "VexIMLib/VXIMClientConfiguration.h"
#include "VexIMLib/VXIMSettings.h"
#include "VexIMLib/internal/Networking/VXIMRequest.h"
#include "VexIMLib/internal/Networking/VXIMURLSessionManager.h"
#include "VexIMLib/internal/Platform/Loading/URLSession.h"
#include "VexIMLib/internal/Platform/Loading/URLSessionTask.h"
#include "networking/BenchServer.h"
#include "networking/CPUTime.h"
#include "networking/RawCurl.h"

namespace {

using vexim::MainQueue;

/// Keeps `inFlight` requests open until `count` have been answered.
class Requests {
public:
    Requests(std::shared_ptr<VXIMURLSessionManager> manager, int count, int inFlight)
        : manager_(std::move(manager)),
          toStart_(count),
          toFinish_(count),
          inFlight_(inFlight) {}

    void run() {
        for (int i = 0; i < inFlight_; ++i) start();
        if (!MainQueue::shared().runUntil([this] { return toFinish_ == 0; },
                                          std::chrono::minutes(2)))
            fail();
    }

private:
    void start() {
        if (toStart_ == 0) return;
        --toStart_;
        auto request = VXIMRequest::request();
        request->setPath("/ctx/5f2b7c9e8a1d4e0012345678/friends");
        request->setQueryParams(vexim::Dictionary{{"limit", "20"}});
        manager_
            ->dataTaskWithRequest(
                *request,
                [this, request](const vexim::Value& result, const vexim::ErrorPtr&) {
                    if (result.get("ts").longLongValue() != 1700000000123) fail();
                    --toFinish_;
                    start();
                })
            ->resume();
    }
    [[noreturn]] static void fail() {
        std::fputs("a request was not answered as it should be\n", stderr);
        std::_Exit(1);
    }

    const std::shared_ptr<VXIMURLSessionManager> manager_;
    int toStart_;
    int toFinish_;
    const int inFlight_;
};

}  // namespace

int main() {
    vexim::bench::stayOnOneCore();
    const vexim::bench::BenchServer server;
    auto configuration = VXIMClientConfiguration::defaultConfiguration();
    configuration->setAppId("app-1");
    configuration->setClientKey("key");
    configuration->setSocketURL(vexim::URL::parse(server.tlsURL()));
    configuration->dictionary().set("caPEM", server.authorityPEM());
    vxim_configuration = configuration;

    auto manager = VXIMURLSessionManager::init();
    manager->setKeepsFinishedDelegates(false);
    vexim::bench::RawCurl raw(server.tlsURL() + "/ctx/5f2b7c9e8a1d4e0012345678/friends?limit=20",
                              server.authorityPEM());

    const struct {
        const char* name;
        int inFlight;
        double limit;
    } cases[] = {{"REST over HTTPS, 1 in flight", 1, 1.5},
                 {"REST over HTTPS, 32 in flight", 32, 1.15}};
    for (const auto& test : cases) {
        // because it takes fifty times as long with valgrind
        const int count = vexim::bench::Selection::asked() ? 400 : 4000;
        vexim::bench::compareCPU(
            test.name, 5, RUSAGE_SELF, RUSAGE_SELF, count, test.limit,
            [&] { Requests(manager, count, test.inFlight).run(); },
            [&] {
                if (!raw.run(count, test.inFlight)) std::_Exit(1);
            });
    }
    return 0;
}
