// The client with the official servers, on both transports. Each test must pass with all of them.
#include <gtest/gtest.h>

#include <chrono>
#include <string>
#include <vector>

#include "VexIMLib/SocketIOClient.h"
#include "interop/NodeServer.h"
#include "support/Certificates.h"
#include "support/ChildProcess.h"
#include "support/Completions.h"
#include "support/Eventually.h"

namespace vexim::testing {
namespace {

using namespace std::chrono_literals;

struct Peer {
    const char* version;
    const char* transport;  // "websocket", "polling", "upgrade"
    bool isSecure;
};

std::string nameOf(const ::testing::TestParamInfo<Peer>& info) {
    std::string name = std::string("v") + info.param.version + "_" + info.param.transport +
                       (info.param.isSecure ? "_tls" : "");
    for (char& c : name) {
        if (c == '.') c = '_';
    }
    return name;
}

class SocketIOInterop : public ::testing::TestWithParam<Peer> {
protected:
    SocketIOInterop() : server_(serverConfig()) {}

    Dictionary serverConfig() {
        Dictionary config{{"version", GetParam().version}, {"verbose", true}};
        if (GetParam().isSecure) {
            const auto identity = authority_.issue();
            config.set("tls", Dictionary{{"cert", identity.certificatePEM},
                                         {"key", identity.privateKeyPEM}});
        }
        // Short intervals, so that the test sees heartbeats.
        config.set("options", Dictionary{{"pingInterval", 200}, {"pingTimeout", 2000}});
        return config;
    }

    Dictionary options() const {
        Dictionary options{
            {"reconnects", false},
            {"connectParams", Dictionary{{"auth", R"({"token":"a+b c&d","é":"€"})"}}}};
        const std::string transport = GetParam().transport;
        if (transport == "websocket") options.set("forceWebsockets", true);
        if (transport == "polling") options.set("forcePolling", true);
        if (transport == "upgrade") options.set("transports", Array{"polling", "websocket"});
        if (GetParam().isSecure) options.set("caPEM", authority_.certificatePEM());
        return options;
    }

    std::shared_ptr<SocketIOClient> connect(const char* nsp) {
        auto client = SocketIOClient::create(URL::parse(server_.url()), options());
        client->joinNamespace(nsp);
        for (const char* event :
             {"connect", "disconnect", "error", "reconnect", "login", "message"}) {
            client->on(event, [this, event](const Array& arguments, const AckEmitter&) {
                heard_.emplace_back(std::string(event) + " " + Value(arguments).description());
                arguments_ = arguments;
            });
        }
        client->connect();
        EXPECT_TRUE(eventually([&] { return heard_.size() >= 2; }))
            << Value(Array::fromStrings(heard_)).description();
        EXPECT_EQ(client->status(), SocketIOStatusConnected);
        return client;
    }

    /// Emits and waits for the next event.
    Array ask(SocketIOClient& client, const char* event, const Array& items) {
        const std::size_t before = heard_.size();
        EXPECT_TRUE(client.emit(event, items));
        EXPECT_TRUE(eventually([&] { return heard_.size() > before; })) << event;
        return arguments_;
    }

    CertificateAuthority authority_;
    NodeServer server_;
    std::vector<std::string> heard_;
    Array arguments_;
};

TEST_P(SocketIOInterop, JoinsTalksAndLeaves) {
    for (const char* nsp : {"/chat", "/"}) {
        SCOPED_TRACE(nsp);
        heard_.clear();
        const auto client = connect(nsp);
        ASSERT_GE(heard_.size(), 2u);
        EXPECT_EQ(heard_[0], std::string("connect [") + nsp + "]");
        EXPECT_EQ(arguments_.get(0).get("id"), Value(R"({"token":"a+b c&d","é":"€"})"));

        const Array text{"é€😀", Dictionary{{"n", 1}, {"list", Array{true, Value::null(), 1.5}}}};
        EXPECT_EQ(ask(*client, "say", text), text);
        const Array binary{Data("\x00\x01\xff", 3), Dictionary{{"inner", Data("abc", 3)}}, "tail"};
        EXPECT_EQ(ask(*client, "say", binary), binary);

        client->disconnect();
        EXPECT_EQ(client->status(), SocketIOStatusDisconnected);
        ASSERT_TRUE(eventually([&] { return heard_.back().starts_with("disconnect"); }));
        EXPECT_EQ(heard_.back(), "disconnect [io client disconnect]");
    }
}

TEST_P(SocketIOInterop, AnswersAndAsksForAcknowledgements) {
    const auto client = connect("/chat");
    Array answer;
    int answers = 0;
    client->emitWithAck("say", {"x", Data("\x07", 1)}, 10s,
                        once([&](const Array& items, const ErrorPtr& error) {
                            EXPECT_FALSE(error);
                            answer = items;
                            ++answers;
                        }));
    client->emitWithAck(
        "silent", {}, 50ms, once([&](const Array&, const ErrorPtr& error) {
            EXPECT_TRUE(error && error->is(kSocketIOErrorDomain, SocketIOErrorAckTimedOut));
            ++answers;
        }));
    ASSERT_TRUE(eventually([&] { return answers == 2; }));
    EXPECT_EQ(answer, (Array{"x", Data("\x07", 1)}));

    client->on("question", [](const Array& arguments, const AckEmitter& ack) {
        EXPECT_TRUE(ack.isExpected());
        ack.with({arguments.get(0), "yes"});
        ack.with({"a second answer does not count"});
    });
    EXPECT_EQ(ask(*client, "ask", {}), (Array{"replied", 7, "yes"}));
}

TEST_P(SocketIOInterop, KeepsOrderUnderLoad) {
    const auto client = connect("/chat");
    std::int64_t next = 0;
    bool inOrder = true;
    client->off("message");
    client->on("message", [&](const Array& arguments, const AckEmitter&) {
        inOrder = inOrder && arguments.get(0) == Value(next++);
    });
    client->emit("flood", {2000, std::string(200, 'x')});
    ASSERT_TRUE(eventually([&] { return next == 2000; }, 120s));
    for (int i = 0; i < 2000; ++i) client->emit("say", {2000 + i});
    ASSERT_TRUE(eventually([&] { return next == 4000; }, 120s));
    EXPECT_TRUE(inOrder);
}

TEST_P(SocketIOInterop, LivesThroughHeartbeats) {
    const auto client = connect("/chat");
    // Longer than interval and timeout together: without heartbeats one side would have given up.
    EXPECT_FALSE(eventually([&] { return heard_.back().starts_with("disconnect"); }, 2500ms));
    EXPECT_EQ(ask(*client, "say", {"still here"}), (Array{"still here"}));
    const std::string expected =
        std::string(GetParam().transport) == "polling" ? "polling" : "websocket";
    EXPECT_EQ(ask(*client, "transport", {}), (Array{expected}));
}

TEST_P(SocketIOInterop, HearsThatTheServerTookTheNamespaceAway) {
    for (const bool closes : {false, true}) {
        heard_.clear();
        const auto client = connect("/chat");
        client->emit("kick", {closes});
        ASSERT_TRUE(eventually([&] { return heard_.back().starts_with("disconnect"); }));
        EXPECT_EQ(heard_.back(), "disconnect [io server disconnect]");
        EXPECT_EQ(client->status(), SocketIOStatusDisconnected);
    }
}

TEST_P(SocketIOInterop, IsRefusedAnUnknownNamespace) {
    const auto client = SocketIOClient::create(URL::parse(server_.url()), options());
    client->joinNamespace("/nowhere");
    std::vector<std::string> heard;
    for (const char* event : {"connect", "disconnect", "error"}) {
        client->on(event, [&heard, event](const Array& arguments, const AckEmitter&) {
            heard.push_back(event + arguments.get(0).description());
        });
    }
    client->connect();
    ASSERT_TRUE(eventually([&] { return !heard.empty(); }));
    EXPECT_EQ(heard, std::vector<std::string>{
                         "errorThe server refused the connection: Invalid namespace."});
    EXPECT_EQ(client->status(), SocketIOStatusDisconnected);
}

#ifdef VEXIM_SOCKETIO_EXAMPLE
TEST(SocketIOExample, TalksToEveryServerWithoutAClientOfTheService) {
    struct Row {
        const char* why;
        std::vector<std::string> arguments;
        const char* line;  // the first that it prints
        int status;
    };
    const Row rows[] = {
        {"an acknowledgement", {"/chat", "say", R"("é")", "[1]"}, R"(answer [é, [1]])", 0},
        {"no such namespace", {"/nowhere", "say"}, nullptr, 1},
    };
    for (const char* version : {"2.5", "3.1", "4.8"}) {
        NodeServer server({{"version", version}});
        for (const auto& row : rows) {
            SCOPED_TRACE(std::string(version) + ", " + row.why);
            std::vector<std::string> words{VEXIM_SOCKETIO_EXAMPLE, server.url()};
            words.insert(words.end(), row.arguments.begin(), row.arguments.end());
            ChildProcess program(words);
            EXPECT_EQ(program.readLine(),
                      row.line ? std::optional<std::string>(row.line) : std::nullopt);
            EXPECT_EQ(program.wait(), row.status << 8);
        }
    }
}
#endif

TEST(SocketIOInteropOptions, CompressesWhenBothSidesWantIt) {
    NodeServer server(
        {{"version", "4.8"},
         {"options", Dictionary{{"perMessageDeflate", Dictionary{{"threshold", 16}}}}}});
    const auto client = SocketIOClient::create(
        URL::parse(server.url()),
        {{"forceWebsockets", true}, {"compress", true}, {"reconnects", false}});
    client->joinNamespace("/chat");
    std::vector<std::string> heard;
    client->on("message", [&](const Array& arguments, const AckEmitter&) {
        heard.push_back(arguments.get(0).description());
    });
    client->connect();
    ASSERT_TRUE(eventually([&] { return client->status() == SocketIOStatusConnected; }));
    std::vector<std::string> sent;
    for (const int length : {1, 100, 1000, 70'000, 500'000}) {
        std::string text;
        while (static_cast<int>(text.size()) < length)
            text += "compressible " + std::to_string(text.size() * 7919 % 1000);
        sent.push_back(text);
        ASSERT_TRUE(client->emit("say", {text}));
    }
    ASSERT_TRUE(eventually([&] { return heard.size() == sent.size(); }));
    EXPECT_EQ(heard, sent);
}

TEST(SocketIOInteropOptions, SendsHeadersParametersAndPayloadWhereServersLook) {
    NodeServer server(
        {{"version", "4.8"}, {"verbose", true}, {"options", Dictionary{{"path", "/live"}}}});
    for (const char* transport : {"forceWebsockets", "forcePolling"}) {
        const auto client = SocketIOClient::create(URL::parse(server.url()),
                                                   {{transport, true},
                                                    {"path", "/live"},
                                                    {"extraHeaders", Dictionary{{"X-Extra", "e"}}},
                                                    {"reconnects", false},
                                                    {"connectParams", Dictionary{{"n", 5}}},
                                                    {"joinPayload", Dictionary{{"token", "t"}}}});
        client->joinNamespace("/");
        client->connect();
        const Value seen = server.nextLine();
        EXPECT_EQ(seen.get("connected"), Value("/")) << transport;
        EXPECT_EQ(seen.get("extra"), Value("e")) << transport;
        EXPECT_EQ(seen.get("query").get("n"), Value("5")) << transport;
        EXPECT_EQ(seen.get("auth").get("token"), Value("t")) << transport;
        client->disconnect();
        EXPECT_EQ(server.nextLine().get("disconnected"), Value("/")) << transport;
    }
}

std::vector<Peer> peers() {
    const bool all = std::getenv("VEXIM_INTEROP_ALL") != nullptr;
    std::vector<Peer> peers;
    for (const char* version : {"2.0", "2.5", "3.1", "4.0", "4.8"}) {
        for (const char* transport : {"websocket", "polling", "upgrade"}) {
            for (const bool isSecure : {false, true}) {
                // The small set: each server and each transport once, and TLS where the transports
                // differ.
                const bool isLine = std::string(version) == "2.5" || std::string(version) == "4.8";
                const bool isChosen = isSecure ? std::string(version) == "4.8"
                                               : isLine || std::string(transport) == "websocket";
                if (all || isChosen) peers.push_back({version, transport, isSecure});
            }
        }
    }
    return peers;
}

INSTANTIATE_TEST_SUITE_P(Servers, SocketIOInterop, ::testing::ValuesIn(peers()), nameOf);

}  // namespace
}  // namespace vexim::testing
