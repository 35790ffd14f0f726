#pragma once

#include <memory>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "VexIMLib/Testing/FakeService.h"

namespace vexim::testing {

/// A REST service that answers every request alike and remembers what it was asked. As long as it
/// lives, it is the service of the shared configuration.
class RecordingService {
public:
    RecordingService() {
        service_.answer("", "", [this](const FakeService::Request&) {
            std::lock_guard lock(mutex_);
            return answer_;
        });
        vxim_configuration = configuration_;
    }
    ~RecordingService() { vxim_configuration = nullptr; }
    RecordingService(const RecordingService&) = delete;
    RecordingService& operator=(const RecordingService&) = delete;

    const std::shared_ptr<VXIMClientConfiguration>& configuration() const { return configuration_; }

    void answerWith(int status, const std::string& body) {
        std::lock_guard lock(mutex_);
        answer_ = {.status = status, .body = Data(body)};
    }

    /// Answers nothing while the result lives.
    [[nodiscard]] std::unique_lock<std::mutex> hold() { return std::unique_lock(mutex_); }

    /// The requests since the last call, as "METHOD target body" (without a blank at the end where
    /// there is no body).
    std::vector<std::string> takeRequests() {
        std::vector<std::string> lines;
        for (const auto& [method, path, query, headers, body] : service_.requests()) {
            lines.push_back(method + " " + path + (query.empty() ? "" : "?" + query) +
                            (body.empty() ? "" : " " + body));
        }
        service_.forgetWhatCame();
        return lines;
    }

private:
    std::mutex mutex_;
    FakeService::Answer answer_{.body = Data()};
    FakeService service_{{.appId = "app", .clientKey = "key"}};
    const std::shared_ptr<VXIMClientConfiguration> configuration_ = service_.configuration();
};

}  // namespace vexim::testing
