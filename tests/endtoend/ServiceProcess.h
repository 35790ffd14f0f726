#pragma once

#include <optional>
#include <string>

#include "endtoend/ServiceUnderTest.h"
#include "support/ChildProcess.h"

namespace vexim::testing {

/// The development service as a child process on a free loopback port, with one generation of
/// Socket.IO servers. It ends with this object, and also if the test crashes. When
/// VEXIM_SERVICE_URL and VEXIM_SERVICE_NODE are set (`scripts/cluster` does), it is the service
/// that already runs there: at the first address, with its control endpoint at the second.
class ServiceProcess final : public ServiceUnderTest {
public:
    explicit ServiceProcess(const std::string& socketIOLine);
    ~ServiceProcess() override;
    ServiceProcess(const ServiceProcess&) = delete;
    ServiceProcess& operator=(const ServiceProcess&) = delete;

    /// "http://127.0.0.1:port"
    const std::string& origin() const override { return origin_; }
    void reset() override { control("reset"); }
    void drop(const std::string& user) override {
        control("drop", R"({"user":")" + user + R"("})");
    }
    /// A request to the control endpoint: "reset", "drop", … with a JSON body. Throws unless it
    /// answers 2xx.
    std::string control(const std::string& what, const std::string& body = "{}") const;
    std::string controlGet(const std::string& what) const;

private:
    std::optional<ChildProcess> process_;
    std::string origin_;
    std::string controlOrigin_;
};

}  // namespace vexim::testing
