#include "endtoend/ServiceProcess.h"

#include <httplib.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <stdexcept>

namespace vexim::testing {

namespace {

std::string readLine(int descriptor) {
    std::string line;
    for (char character = 0; ::read(descriptor, &character, 1) == 1 && character != '\n';) line += character;
    return line;
}

std::string checked(const httplib::Result& answer, const std::string& what) {
    if (!answer || answer->status < 200 || answer->status > 299) throw std::runtime_error("the service refuses: " + what);
    return answer->body;
}

}  // namespace

ServiceProcess::ServiceProcess(const std::string& socketIOLine) {
    std::array<int, 2> input{}, output{};
    if (::pipe2(input.data(), O_CLOEXEC) != 0 || ::pipe2(output.data(), O_CLOEXEC) != 0) throw std::runtime_error("no pipe");
    posix_spawn_file_actions_t actions;
    ::posix_spawn_file_actions_init(&actions);
    ::posix_spawn_file_actions_adddup2(&actions, input[0], STDIN_FILENO);
    ::posix_spawn_file_actions_adddup2(&actions, output[1], STDOUT_FILENO);

    std::array<std::string, 5> words{"node", VEXIM_SERVICE_DIRECTORY "/server.js", "--exit-with-parent", "--socketio",
                                     socketIOLine};
    std::array<char*, 6> arguments{};
    for (std::size_t i = 0; i < words.size(); ++i) arguments[i] = words[i].data();
    const int failure = ::posix_spawnp(&pid_, "node", &actions, nullptr, arguments.data(), environ);
    ::posix_spawn_file_actions_destroy(&actions);
    ::close(input[0]);
    ::close(output[1]);
    standardInput_ = input[1];

    const std::string line = failure == 0 ? readLine(output[0]) : "";
    ::close(output[0]);
    const auto address = line.find("http://");
    if (address == std::string::npos) throw std::runtime_error("the service did not start (has \"npm ci\" run in service/?)");
    origin_ = line.substr(address);
}

ServiceProcess::~ServiceProcess() {
    ::close(standardInput_);
    if (pid_ > 0) ::waitpid(pid_, nullptr, 0);
}

std::string ServiceProcess::control(const std::string& what, const std::string& body) const {
    httplib::Client http(origin_);
    return checked(http.Post("/_control/" + what, body, "application/json"), what);
}

std::string ServiceProcess::controlGet(const std::string& what) const {
    httplib::Client http(origin_);
    return checked(http.Get("/_control/" + what), what);
}

}  // namespace vexim::testing
