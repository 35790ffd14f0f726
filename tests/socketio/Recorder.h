#pragma once

#include <gtest/gtest.h>
#include <memory>
#include <string>
#include <vector>

#include "VexIMLib/SocketIOClient.h"
#include "support/Eventually.h"

namespace vexim::testing {

/// A client of "/chat" that has not connected yet; over WebSocket if `options` do not say how.
inline std::shared_ptr<SocketIOClient> makeClient(const std::string& url, Dictionary options = {}) {
    if (!options.contains("transports") && !options.contains("forcePolling"))
        options.set("forceWebsockets", true);
    auto client = SocketIOClient::create(URL::parse(url), options);
    client->joinNamespace("/chat");
    return client;
}

/// Keeps what a client's handlers hear, one line an event.
class Recorder {
public:
    Recorder() = default;
    explicit Recorder(SocketIOClient& client) { listen(client); }

    void listen(SocketIOClient& client) {
        for (const char* event : {"connect", "disconnect", "error", "reconnect", "message"}) {
            client.on(event, [lines = lines_, event](const Array& arguments, const AckEmitter&) {
                const std::string first = arguments.get(0).description();
                lines->push_back(std::string(event) + " " + first);
                if (lines->back().starts_with("error "))
                    expectWhole(first, arguments.get(arguments.size() - 1).as<Error>());
            });
        }
    }
    const std::vector<std::string>& lines() const { return *lines_; }
    std::string last() const { return lines_->empty() ? "" : lines_->back(); }
    [[nodiscard]] bool waitFor(std::string_view beginning) const {
        return eventually([&] { return last().starts_with(beginning); });
    }
    [[nodiscard]] bool connect(SocketIOClient& client) const {
        client.connect();
        return waitFor("connect");
    }
    void clear() { lines_->clear(); }

private:
    static void expectWhole(const std::string& sentence, const ErrorPtr& error) {
        ASSERT_TRUE(error) << sentence;
        EXPECT_EQ(error->localizedDescription(), sentence);
        EXPECT_TRUE(sentence.size() > 9 && sentence.ends_with('.') && !sentence.ends_with(".."))
            << sentence;
    }

    std::shared_ptr<std::vector<std::string>> lines_ = std::make_shared<std::vector<std::string>>();
};

}  // namespace vexim::testing
