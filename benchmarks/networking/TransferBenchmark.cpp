// 2 GiB up and down on loopback, with and without TLS, compared with "curl -F" and "curl -o": CPU
// time and growth of peak memory.
//   transfer_benchmark [MiB]

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>
#include <vector>

#include "VexIMLib/Foundation/MainQueue.h"
#include "VexIMLib/Foundation/URL.h"
#include "VexIMLib/VXIMClientConfiguration.h"
#include "VexIMLib/internal/Networking/DownloadFile.h"
#include "VexIMLib/internal/Networking/VXIMAFStreamingMultipartFormData.h"
#include "VexIMLib/internal/Networking/VXIMRequest.h"
#include "VexIMLib/internal/Networking/VXIMURLSessionManager.h"
#include "VexIMLib/internal/Platform/Loading/URLSession.h"
#include "VexIMLib/internal/Platform/Loading/URLSessionTask.h"
#include "networking/BenchServer.h"
#include "networking/CPUTime.h"
#include "networking/PeakMemory.h"

namespace {

namespace fs = std::filesystem;

[[noreturn]] void fail(const std::string& why) {
    std::fprintf(stderr, "%s\n", why.c_str());
    std::_Exit(1);
}

void runCurl(std::vector<std::string> arguments) {
    std::vector<char*> raw;
    for (auto& argument : arguments) raw.push_back(argument.data());
    raw.push_back(nullptr);
    const auto child = ::fork();
    if (child == 0) {
        const int null = ::open("/dev/null", O_RDWR);
        ::dup2(null, 1);
        ::execvp("curl", raw.data());
        std::_Exit(127);
    }
    int status = 0;
    ::waitpid(child, &status, 0);
    if (status != 0) fail("curl failed");
}

/// The transfers with one scheme. Progress must never decrease.
class Transfers {
public:
    Transfers(std::string origin, const std::string& authorityPEM, fs::path source, fs::path target)
        : source_(std::move(source)),
          target_(std::move(target)) {
        vxim_configuration->setSocketURL(vexim::URL::parse(origin));
        vxim_configuration->setDictionary(std::nullopt);
        if (!authorityPEM.empty()) vxim_configuration->dictionary().set("caPEM", authorityPEM);
        manager_ = VXIMURLSessionManager::init();
        manager_->setKeepsFinishedDelegates(false);
    }

    void upload() {
        auto request = VXIMRequest::request();
        request->setMethod("POST");
        request->setPath("/attachment");
        auto form = VXIMAFStreamingMultipartFormData::initWithURLRequest(
            request, vexim::StringEncoding::UTF8);
        form->appendPartWithFileURL(vexim::URL::fileURLWithPath(source_.string()), "attachment",
                                    nullptr);
        auto finalized = form->requestByFinalizingMultipartFormData();
        finish([&](VXIMProgress progress, VXIMResultCompletion done) {
            return manager_->uploadTaskWithRequest(*finalized, std::move(progress),
                                                   std::move(done));
        });
    }

    void download(std::uint64_t bytes) {
        auto request = VXIMRequest::request();
        request->setPath("/file?bytes=" + std::to_string(bytes));
        vexim::rest::DownloadFile file(target_.string());
        finish([&](VXIMProgress progress, VXIMResultCompletion done) {
            return manager_->fileDownloadTaskWithRequest(
                *request, [&](const std::string&) { return file.newStream(); }, std::move(progress),
                std::move(done));
        });
        if (file.conclude(nullptr) || fs::file_size(target_) != bytes)
            fail("the file is not whole");
    }

private:
    template <class MakeTask>
    void finish(MakeTask makeTask) {
        bool done = false;
        std::int32_t last = 0;
        auto task = makeTask(
            [&](std::int32_t percent) {
                if (percent < last) fail("progress ran backwards");
                last = percent;
            },
            [&](const vexim::Value&, const vexim::ErrorPtr& error) {
                if (error) fail(error->description());
                done = true;
            });
        task->resume();
        if (!vexim::MainQueue::shared().runUntil([&] { return done; }, std::chrono::minutes(5)))
            fail("no end");
        if (last != 100) fail("progress did not reach 100");
    }

    const fs::path source_;
    const fs::path target_;
    std::shared_ptr<VXIMURLSessionManager> manager_;
};

}  // namespace

int main(int argc, char** argv) {
    const std::uint64_t mebibytes = argc > 1 ? std::strtoull(argv[1], nullptr, 10) : 2048;
    const std::uint64_t bytes = mebibytes << 20;
    vexim::bench::stayOnOneCore();
    const vexim::bench::BenchServer server;
    auto configuration = VXIMClientConfiguration::defaultConfiguration();
    configuration->setAppId("app-1");
    configuration->setClientKey("key");
    vxim_configuration = configuration;

    const auto folder = fs::temp_directory_path() / ("vexim-bench-" + std::to_string(::getpid()));
    fs::create_directories(folder);
    const auto source = folder / "source";
    const auto target = folder / "target";
    const auto authority = folder / "authority.pem";
    std::ofstream(authority) << server.authorityPEM();
    std::ofstream(source) << "";
    fs::resize_file(source, bytes);  // a sparse file, so that the disk's time does not count

    for (const auto& origin : {server.plainURL(), server.tlsURL()}) {
        const std::string scheme = origin.substr(0, origin.find(':'));
        Transfers transfers(origin, server.authorityPEM(), source, target);
        long growth = 0;
        const auto growing = [&](auto transfer) {
            vexim::bench::forgetPeakMemory();
            const long before = vexim::bench::peakMemory();
            transfer();
            growth = vexim::bench::peakMemory() - before;
        };
        vexim::bench::compareCPU(
            "upload over " + scheme, 3, RUSAGE_SELF, RUSAGE_CHILDREN, 1, 1.10,
            [&] { growing([&] { transfers.upload(); }); },
            [&] {
                runCurl({"curl", "-sS", "--fail", "--cacert", authority, "-H", "Expect:", "-F",
                         "attachment=@" + source.string(), origin + "/attachment"});
            });
        vexim::bench::printAmount("  peak memory grew by", static_cast<double>(growth), "KiB",
                                  4096);
        vexim::bench::compareCPU(
            "download over " + scheme, 3, RUSAGE_SELF, RUSAGE_CHILDREN, 1, 1.10,
            // Each replaces the previous file, so its time includes freeing that.
            [&] { growing([&] { transfers.download(bytes); }); },
            [&] {
                runCurl({"curl", "-sS", "--fail", "--cacert", authority, "-o", target,
                         origin + "/file?bytes=" + std::to_string(bytes)});
            });
        vexim::bench::printAmount("  peak memory grew by", static_cast<double>(growth), "KiB",
                                  4096);
    }
    fs::remove_all(folder);
    return 0;
}
