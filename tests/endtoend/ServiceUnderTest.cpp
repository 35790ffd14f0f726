#include "endtoend/ServiceUnderTest.h"

#include <map>
#include <memory>

#include "VexIMLib/Testing/FakeService.h"
#include "endtoend/ServiceProcess.h"

namespace vexim::testing {

namespace {

class FakeUnderTest final : public ServiceUnderTest {
public:
    explicit FakeUnderTest(int line) : service_({.socketIOLine = line}) {}
    const std::string& origin() const override { return service_.url(); }
    void reset() override { service_.reset(); }
    void drop(const std::string& user) override { service_.dropConnections(user); }

private:
    FakeService service_;
};

}  // namespace

ServiceUnderTest& ServiceUnderTest::shared(const std::string& name) {
    static std::map<std::string, std::unique_ptr<ServiceUnderTest>> services;
    auto& service = services[name];
    const std::string line = name.substr(name.size() - 1);
    if (!service && name.starts_with("Node")) service = std::make_unique<ServiceProcess>(line);
    if (!service) service = std::make_unique<FakeUnderTest>(std::stoi(line));
    return *service;
}

}  // namespace vexim::testing
