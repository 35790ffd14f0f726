// Anything through the C interface: the input's lines are sent as requests, executed, and used as configurations. Each request has
// exactly one answer, the answers are JSON, and when all clients are freed nothing comes any more.

#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

#include "VexIMLib/C/vexim.h"
#include "VexIMLib/Foundation/JSON.h"
#include "VexIMLib/Foundation/Log.h"

namespace {

void require(bool condition) {
    if (!condition) std::abort();
}

/// Whether it is an answer; an event is not.
bool isAnswer(const char* text) {
    const auto read = vexim::parseJSON(text);
    require(!read.error);
    const auto type = read.value.get("@type").asString().value_or("");
    require(type == "answer" || type == "error" || type == "event");
    return type != "event";
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
    static const bool isQuiet = (vexim::setLogSink([](vexim::LogLevel, std::string_view) {}), true);
    require(isQuiet);
    // Nobody listens at that address.
    auto client = vexim_create(R"({"appId":"app","clientKey":"key","installationId":"i","socketURL":"http://127.0.0.1:1"})");
    int open = 0;
    std::string_view rest(reinterpret_cast<const char*>(bytes), size);
    while (!rest.empty()) {
        const auto end = rest.find('\n');
        const std::string line(rest.substr(0, end));
        rest.remove_prefix(end == rest.npos ? rest.size() : end + 1);
        // What writes files or to the terminal is left out.
        if (line.find("path") != line.npos || line.find("Path") != line.npos || line.find("setLog") != line.npos) continue;
        vexim_send(client, line.c_str());
        ++open;
        require(isAnswer(vexim_execute(client, line.c_str())));
        const auto other = vexim_create(line.c_str());
        require(other != 0);
        vexim_free(other);
        while (const char* text = vexim_receive(client, 0)) open -= isAnswer(text);
    }
    vexim_free(client);
    while (const char* text = vexim_receive(client, 0)) open -= isAnswer(text);
    require(open == 0);
    vexim_free(client);
    return 0;
}
