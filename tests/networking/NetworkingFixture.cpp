#include "networking/NetworkingFixture.h"

#include <fstream>
#include <random>
#include <sstream>
#include <utility>

#include "VexIMLib/Foundation/JSON.h"
#include "VexIMLib/Foundation/MainQueue.h"
#include "VexIMLib/Foundation/URL.h"
#include "VexIMLib/VXIMClientConfiguration.h"
#include "VexIMLib/internal/Networking/VXIMAFStreamingMultipartFormData.h"
#include "VexIMLib/internal/Networking/VXIMHTTPRequest.h"
#include "VexIMLib/internal/Networking/VXIMRequest.h"
#include "VexIMLib/internal/Platform/Files/InputStream.h"
#include "support/Completions.h"
#include "support/Eventually.h"

namespace fs = std::filesystem;
using vexim::testing::ScriptedServer;
using vexim::testing::WireRequest;

std::string describe(const vexim::Value& result, const vexim::ErrorPtr& error) {
    if (!error) {
        if (const auto* bytes = result.asData())
            return "bytes \"" + std::string(bytes->view()) + '"';
        return vexim::writeJSON(result, vexim::JSONFragments::Allow).text;
    }
    auto line = error->domain() + ' ' + std::to_string(error->code()) + " \"" +
                error->localizedDescription() + '"';
    if (error->info("temporary").boolValue()) line += " temporary";
    if (auto cause = error->underlyingError())
        line += " over " + cause->domain() + ' ' + std::to_string(cause->code());
    if (!result.isNil()) line += " and a result";
    return line;
}

std::string noise(std::size_t size) {
    std::mt19937 generator(42);
    std::string bytes(size, '\0');
    for (char& byte : bytes) byte = static_cast<char>(generator());
    return bytes;
}

NetworkingTest::NetworkingTest() {
    auto configuration = VXIMClientConfiguration::defaultConfiguration();
    configuration->setAppId("app-1");
    configuration->setClientKey("key");
    vxim_configuration = configuration;
}

NetworkingTest::~NetworkingTest() {
    server = nullptr;
    vxim_configuration = nullptr;
}

void NetworkingTest::pointAt(const std::string& origin) {
    vxim_configuration->setSocketURL(vexim::URL::parse(origin));
}

void NetworkingTest::serve(ScriptedServer::Script script) {
    server = std::make_unique<ScriptedServer>(std::move(script));
    pointAt(server->url(""));
}

void NetworkingTest::answerEverything(int status, std::string body, std::string headers) {
    serve(ScriptedServer::answering([this, status, body = std::move(body),
                                     headers = std::move(headers)](const WireRequest& request) {
        std::lock_guard lock(mutex_);
        requests_.push_back(request);
        return ScriptedServer::text(status, body, headers);
    }));
}

std::vector<WireRequest> NetworkingTest::requests() const {
    std::lock_guard lock(mutex_);
    return requests_;
}

std::string NetworkingTest::outcomeOf(const Operation& operation) {
    std::optional<std::string> outcome;
    operation(
        vexim::testing::once([&outcome](const vexim::Value& result, const vexim::ErrorPtr& error) {
            outcome = describe(result, error);
        }));
    auto& mainQueue = vexim::MainQueue::shared();
    const auto retryIsWaiting = [&] {
        return mainQueue.nextDeadline().value_or(clock.now()) > clock.now();
    };
    while (!outcome) {
        if (!vexim::testing::eventually([&] { return outcome || retryIsWaiting(); }))
            return "no completion";
        if (!outcome) clock.advanceAndDrain(std::chrono::seconds(2));
    }
    return *outcome;
}

std::string NetworkingTest::makeFile(const std::string& name, const std::string& contents) const {
    std::ofstream(folder / name, std::ios::binary) << contents;
    return (folder / name).string();
}

std::string NetworkingTest::contentsOf(const fs::path& path) {
    std::ostringstream contents;
    contents << std::ifstream(path, std::ios::binary).rdbuf();
    return contents.str();
}

std::string RequestTest::get(const std::string& path) {
    return outcomeOf([&](VXIMResultCompletion done) {
        VXIMHTTPRequest::get(path, std::nullopt, std::move(done));
    });
}

std::shared_ptr<VXIMRequest> smallForm() {
    auto request = VXIMRequest::request();
    request->setMethod("POST");
    request->setPath("/attachment");
    auto form =
        VXIMAFStreamingMultipartFormData::initWithURLRequest(request, vexim::StringEncoding::UTF8);
    form->appendPartWithInputStream(vexim::InputStream::withData(vexim::Data("abc")), "f", "f", 3,
                                    "x/y");
    return form->requestByFinalizingMultipartFormData();
}
