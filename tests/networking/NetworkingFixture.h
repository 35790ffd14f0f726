#pragma once

#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "VexIMLib/Foundation/Error.h"
#include "VexIMLib/Foundation/Value.h"
#include "VexIMLib/Testing/ManualClock.h"
#include "VexIMLib/VXIMCompletions.h"
#include "support/ScriptedServer.h"
#include "support/TemporaryFolder.h"

class VXIMRequest;

/// What a completion got, as one line: the result as JSON text, `bytes "…"`, or
/// `domain code "description" temporary over domain code`.
std::string describe(const vexim::Value& result, const vexim::ErrorPtr& error);

/// A configuration that points at a server of the test, a clock that is advanced by hand, and a
/// folder for files.
class NetworkingTest : public ::testing::Test {
protected:
    using Connection = vexim::testing::ScriptedServer::Connection;
    using Operation = std::function<void(VXIMResultCompletion)>;

    NetworkingTest();
    ~NetworkingTest() override;

    /// Requests go there from now on.
    void serve(vexim::testing::ScriptedServer::Script script);
    /// Gives this answer to every request, and records the requests.
    void answerEverything(int status, std::string body, std::string headers = {});
    void pointAt(const std::string& origin);

    /// Runs `operation` to its end, advancing the clock through its retries. Returns what its
    /// completion got.
    std::string outcomeOf(const Operation& operation);

    std::vector<vexim::testing::WireRequest> requests() const;
    std::string makeFile(const std::string& name, const std::string& contents) const;
    static std::string contentsOf(const std::filesystem::path& path);

    vexim::testing::ManualClock clock{1700000000};
    std::unique_ptr<vexim::testing::ScriptedServer> server;
    const vexim::testing::TemporaryFolder folder;

private:
    mutable std::mutex mutex_;
    std::vector<vexim::testing::WireRequest> requests_;
};

/// Requests of a path, without a file.
class RequestTest : public NetworkingTest {
protected:
    std::string get(const std::string& path = "/thing");
};

/// A form for "/attachment" that holds three bytes.
std::shared_ptr<VXIMRequest> smallForm();

/// Bytes without a pattern, so that a shift or a swap is noticed. Always the same for the same
/// size.
std::string noise(std::size_t size);
