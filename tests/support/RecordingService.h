#pragma once

#include <memory>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "VexIMLib/Foundation/URL.h"
#include "VexIMLib/VXIMClientConfiguration.h"
#include "support/ScriptedServer.h"

namespace vexim::testing {

/// A REST service that answers every request alike and remembers what it was asked. While it lives it is the service of the
/// shared configuration.
class RecordingService {
public:
    RecordingService()
        : server_(ScriptedServer::answering([this](const WireRequest& request) {
              std::lock_guard lock(mutex_);
              if (records_) requests_.push_back(request);
              return ScriptedServer::text(status_, body_);
          })),
          configuration_(VXIMClientConfiguration::defaultConfiguration()) {
        configuration_->setAppId("app");
        configuration_->setClientKey("key");
        configuration_->setInstallationId("installation");
        configuration_->setSocketURL(URL::parse(server_.url("")));
        vxim_configuration = configuration_;
    }
    ~RecordingService() { vxim_configuration = nullptr; }
    RecordingService(const RecordingService&) = delete;
    RecordingService& operator=(const RecordingService&) = delete;

    const std::shared_ptr<VXIMClientConfiguration>& configuration() const { return configuration_; }

    void answerWith(int status, std::string body) {
        std::lock_guard lock(mutex_);
        status_ = status;
        body_ = std::move(body);
    }

    /// From here on requests are answered and forgotten.
    void stopRecording() {
        std::lock_guard lock(mutex_);
        records_ = false;
    }

    /// The requests since the last call, as "METHOD target body" (without a blank at the end where there is no body).
    std::vector<std::string> takeRequests() {
        std::lock_guard lock(mutex_);
        std::vector<std::string> lines;
        for (const auto& request : std::exchange(requests_, {})) {
            lines.push_back(request.method + " " + request.target + (request.body.empty() ? "" : " " + request.body));
        }
        return lines;
    }

private:
    std::mutex mutex_;
    int status_ = 200;
    std::string body_;
    bool records_ = true;
    std::vector<WireRequest> requests_;
    ScriptedServer server_;  // after what its script uses
    const std::shared_ptr<VXIMClientConfiguration> configuration_;
};

}  // namespace vexim::testing
