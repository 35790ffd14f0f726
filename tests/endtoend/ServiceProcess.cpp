#include "endtoend/ServiceProcess.h"

#include <httplib.h>

#include <cstdlib>
#include <stdexcept>
#include <vector>

namespace vexim::testing {

namespace {

std::string checked(const httplib::Result& answer, const std::string& what) {
    if (!answer || answer->status < 200 || answer->status > 299)
        throw std::runtime_error("the service refuses: " + what);
    return answer->body;
}

}  // namespace

ServiceProcess::ServiceProcess(const std::string& socketIOLine) {
    const char* url = std::getenv("VEXIM_SERVICE_URL");
    const char* node = std::getenv("VEXIM_SERVICE_NODE");
    if (url != nullptr && node != nullptr) {
        origin_ = url;
        controlOrigin_ = node;
        return;
    }
    const std::string server = std::string(VEXIM_SERVICE_DIRECTORY) + "/server.js";
    const std::vector<std::string> command{"node", server, "--exit-with-parent", "--socketio",
                                           socketIOLine};
    process_.emplace(command);
    const std::string line = process_->readLine().value_or("");
    const auto address = line.find("http://");
    if (address == std::string::npos)
        throw std::runtime_error("the service did not start (has \"npm ci\" run in service/?)");
    origin_ = controlOrigin_ = line.substr(address);
}

ServiceProcess::~ServiceProcess() {
    if (!process_) return;
    process_->closeInput();
    process_->wait();  // it tidies up
}

std::string ServiceProcess::control(const std::string& what, const std::string& body) const {
    httplib::Client http(controlOrigin_);
    return checked(http.Post("/_control/" + what, body, "application/json"), what);
}

std::string ServiceProcess::controlGet(const std::string& what) const {
    httplib::Client http(controlOrigin_);
    return checked(http.Get("/_control/" + what), what);
}

}  // namespace vexim::testing
