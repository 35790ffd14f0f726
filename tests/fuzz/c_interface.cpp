// Anything through the C interface: the input's lines are sent as requests, executed, and used as
// configurations. Each request has exactly one answer, the answers are JSON, and nothing comes
// after all clients are freed. Operations of the store also go to a client with a store, in a
// folder that is removed at the end.

#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <string_view>
#include <system_error>

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

/// A client with a store and an observation of each kind. It never logs in.
vexim_client clientWithStore() {
    static std::string folder = (std::filesystem::temp_directory_path() / "fuzz-XXXXXX").string();
    require(::mkdtemp(folder.data()) != nullptr);
    std::atexit([] {
        std::error_code ignored;
        std::filesystem::remove_all(folder, ignored);
    });
    const auto client = vexim_create(R"({"socketURL":"http://127.0.0.1:1"})");
    const std::string requests[] = {
        R"({"@op":"VXIMConversations.open","userId":"alice","path":")" + folder + R"("})",
        R"({"@op":"VXIMMessageStore.observeMessages","id":{"kind":"friend","id":"bob"},"limit":5})",
        R"({"@op":"VXIMMessageStore.observeConversations","limit":5})",
        R"({"@op":"VXIMMessageStore.observeDamage"})",
    };
    for (const auto& request : requests) vexim_send(client, request.c_str());
    return client;
}

/// Whether it is an operation of an open store that leaves it open.
bool isForStore(const std::string& line) {
    const std::string name = vexim::parseJSON(line).value.get("@op").asString().value_or("");
    const bool isOfStore = name.starts_with("VXIMConversations.") ||
                           name.starts_with("VXIMMessageStore.") ||
                           name.starts_with("VXIMStoreObservation.");
    return isOfStore && !name.ends_with(".open") && !name.ends_with(".close");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
    static const bool isQuiet = (vexim::setLogSink([](vexim::LogLevel, std::string_view) {}), true);
    require(isQuiet);
    static const vexim_client keeper = clientWithStore();
    static int openAtKeeper = 4;
    // Nobody listens at that address.
    auto client = vexim_create(
        R"({"appId":"app","clientKey":"key","installationId":"i","socketURL":"http://127.0.0.1:1"})");
    int open = 0;
    std::string_view rest(reinterpret_cast<const char*>(bytes), size);
    while (!rest.empty()) {
        const auto end = rest.find('\n');
        const std::string line(rest.substr(0, end));
        rest.remove_prefix(end == rest.npos ? rest.size() : end + 1);
        // Leave out requests that write to files or the terminal.
        if (line.find("path") != line.npos || line.find("Path") != line.npos ||
            line.find("setLog") != line.npos)
            continue;
        vexim_send(client, line.c_str());
        ++open;
        require(isAnswer(vexim_execute(client, line.c_str())));
        const auto other = vexim_create(line.c_str());
        require(other != 0);
        vexim_free(other);
        while (const char* text = vexim_receive(client, 0)) open -= isAnswer(text);
        if (!isForStore(line)) continue;
        vexim_send(keeper, line.c_str());
        ++openAtKeeper;
        while (openAtKeeper > 0) {
            const char* text = vexim_receive(keeper, 60);
            require(text != nullptr);
            openAtKeeper -= isAnswer(text);
        }
    }
    vexim_free(client);
    while (const char* text = vexim_receive(client, 0)) open -= isAnswer(text);
    require(open == 0);
    vexim_free(client);
    return 0;
}
