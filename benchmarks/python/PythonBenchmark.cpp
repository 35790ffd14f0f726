// A message received through the Python package, from the frame to `async for`: CPU time of all
// threads of a Python process. The limit is 50 microseconds, so that one core can handle 20 000
// messages a second. The server is another process.

#include <cstdio>
#include <cstdlib>
#include <string>

#include "live/LiveServer.h"
#include "networking/CPUTime.h"

int main() {
    vexim::bench::stayOnOneCore();
    const vexim::bench::LiveServer server;
    const std::string command = VEXIM_PYTHON_COMMAND " " + std::to_string(server.port()) + " " +
                                std::to_string(server.kFlood);
    FILE* const output = ::popen(command.c_str(), "r");
    double microseconds = 0;
    if (output == nullptr || std::fscanf(output, "%lf", &microseconds) != 1 ||
        ::pclose(output) != 0) {
        std::fprintf(stderr, "python benchmark: the program failed\n");
        return 1;
    }
    vexim::bench::printRatio("python: a message received", microseconds, 1e6 / 20'000, "us", 1.0);
    return 0;
}
