// Rules that are pure functions: when to reconnect, through which proxy, with which cookies and options.
#include <gtest/gtest.h>

#include <map>
#include <string>
#include <vector>

#include "VexIMLib/internal/SocketIO/CookieJar.h"
#include "VexIMLib/internal/SocketIO/FrameScanner.h"
#include "VexIMLib/internal/SocketIO/Outbox.h"
#include "VexIMLib/internal/SocketIO/Proxy.h"
#include "VexIMLib/internal/SocketIO/ReconnectPolicy.h"
#include "VexIMLib/internal/SocketIO/SocketIOOptions.h"
#include "socketio/WebSocketPeer.h"
#include "support/SeededRandom.h"

namespace vexim::testing {
namespace {

using namespace std::chrono_literals;
using std::chrono::milliseconds;

TEST(ReconnectPolicy, DoublesToACapAndDrawsBelowIt) {
    const ReconnectPolicy policy;
    constexpr std::uint32_t kHighest = 0xFFFFFFFF;
    const milliseconds bounds[] = {1s, 2s, 4s, 8s, 16s, 30s, 30s};
    for (std::uint32_t attempt = 0; attempt < std::size(bounds); ++attempt) {
        EXPECT_EQ(reconnectDelay(policy, attempt, kHighest), bounds[attempt]) << attempt;
        EXPECT_EQ(reconnectDelay(policy, attempt, 0), 0ms) << attempt;
    }
    EXPECT_EQ(reconnectDelay(policy, 4'000'000'000, kHighest), 30s);
    ReconnectPolicy bounded;
    bounded.maxAttempts = 1;
    EXPECT_TRUE(reconnectDelay(bounded, 0, 0));
    EXPECT_FALSE(reconnectDelay(bounded, 1, 0));
    ReconnectPolicy off;
    off.enabled = false;
    EXPECT_FALSE(reconnectDelay(off, 0, 0));
}

TEST(ReconnectPolicy, SpreadsAThousandClientsThatWereDroppedTogether) {
    SeededRandom random(7);
    const ReconnectPolicy policy;
    std::map<std::pair<std::uint32_t, std::int64_t>, int> slots;  // by attempt, after the fifth, and second
    for (int client = 0; client < 1000; ++client) {
        milliseconds at = 0ms;
        for (std::uint32_t attempt = 0; attempt < 12; ++attempt) {
            at += *reconnectDelay(policy, attempt, random.random().next32());
            if (attempt > 5) ++slots[{attempt, at / 1s}];
        }
    }
    for (const auto& [slot, count] : slots) EXPECT_LE(count, 80) << "attempt " << slot.first << " in second " << slot.second;
}

TEST(Proxy, IsWhatTheEnvironmentNames) {
    using Variables = std::map<std::string, std::string>;
    struct Row {
        const char* why;
        bool isSecure;
        const char* host;
        Variables variables;
        const char* expected;
    };
    const Row rows[] = {
        {"none", false, "h", {}, ""},
        {"plain", false, "h", {{"http_proxy", "http://p:3128"}}, "p:3128 "},
        {"upper case could come from a CGI request", false, "h", {{"HTTP_PROXY", "http://p:3128"}}, ""},
        {"TLS", true, "h", {{"http_proxy", "http://a"}, {"HTTPS_PROXY", "b:8080"}}, "b:8080 "},
        {"for all", true, "h", {{"all_proxy", "p:1"}}, "p:1 "},
        {"credentials", true, "h", {{"https_proxy", "http://us%40er:p%3Aw@p:1"}}, "p:1 Basic dXNAZXI6cDp3"},
        {"without a port", true, "h", {{"https_proxy", "http://p"}}, "p:1080 "},
        {"a kind we do not speak", true, "h", {{"https_proxy", "socks5://p:1"}}, ""},
        {"exception", true, "im.Example.com", {{"https_proxy", "p:1"}, {"no_proxy", "a.b, example.com"}}, ""},
        {"no exception for a mere suffix", true, "badexample.com", {{"https_proxy", "p:1"}, {"no_proxy", "example.com"}}, "p:1 "},
        {"exception with a dot", true, "im.example.com", {{"https_proxy", "p:1"}, {"NO_PROXY", ".example.com"}}, ""},
        {"exception for a port", true, "h", {{"https_proxy", "p:1"}, {"no_proxy", "h:444"}}, "p:1 "},
        {"exception for all", true, "h", {{"https_proxy", "p:1"}, {"no_proxy", "*"}}, ""},
    };
    for (const auto& row : rows) {
        const auto proxy = proxyFor(row.isSecure, row.host, 443, [&](const char* name) -> const char* {
            const auto found = row.variables.find(name);
            return found == row.variables.end() ? nullptr : found->second.c_str();
        });
        const std::string shown = proxy ? proxy->host + ":" + std::to_string(proxy->port) + " " + proxy->authorization : "";
        EXPECT_EQ(shown, row.expected) << row.why;
    }
}

TEST(CookieJar, SendsBackWhatItWasGiven) {
    CookieJar jar;
    EXPECT_EQ(jar.header(), "");
    for (const char* cookie :
         {" io=abc; Path=/; HttpOnly", "AWSALB=x=y; Expires=Wed", "io=def", "junk", "=nameless", "a=b\r\nX: y"}) {
        jar.store(cookie);
    }
    EXPECT_EQ(jar.header(), "io=def; AWSALB=x=y");
}

TEST(Options, IgnoreWhatTheyDoNotKnowAndSayIt) {
    const auto parsed = parseSocketIOOptions({{"forceWebsockets", true},
                                              {"forcePolling", true},
                                              {"reconnectAttempts", -1},
                                              {"reconnectWait", 0},
                                              {"connectTimeout", 2.5},
                                              {"path", "live"},
                                              {"log", "yes"},
                                              {"extraHeaders", Dictionary{{"X-A", "b\r\nc"}}},
                                              {"transports", Array{"carrier pigeon"}},
                                              {"shouldLog", true}});
    EXPECT_EQ(parsed.options.session.transports, TransportChoice::WebSocketOnly);
    EXPECT_EQ(parsed.options.reconnect.maxAttempts, std::nullopt);
    EXPECT_EQ(parsed.options.reconnect.firstWait, 1s) << "at least";
    EXPECT_EQ(parsed.options.session.connectTimeout, 2500ms);
    EXPECT_EQ(parsed.options.session.path, "/live/");
    EXPECT_EQ(parsed.complaints.size(), 4u);
    EXPECT_TRUE(parseSocketIOOptions({}).options.reconnect.enabled);
    EXPECT_EQ(parseSocketIOOptions({{"reconnectAttempts", 0}}).options.reconnect.maxAttempts, 0u);
}

TEST(Options, NeverDowngradeASecureUrl) {
    const std::pair<const char*, bool> rows[] = {{"https://h", false}, {"wss://h", false}, {"http://h", true}, {"ws://h", true}};
    for (const auto& [url, secure] : rows) {
        const auto endpoint = endpointOf(URL::parse(url), secure);
        ASSERT_TRUE(endpoint) << url;
        EXPECT_TRUE(endpoint->isSecure) << url;
        EXPECT_EQ(endpoint->port, 443) << url;
    }
    EXPECT_EQ(endpointOf(URL::parse("http://[::1]:8080"), false)->authority(), "[::1]:8080");
    EXPECT_EQ(endpointOf(URL::parse("http://h"), false)->authority(), "h");
}

TEST(Outbox, GivesBackWhatWasPutIn) {
    Outbox outbox;
    for (int i = 0; i < 5000; ++i) {
        EncodedPacket packet{std::string(static_cast<std::size_t>(i % 97), 'x') + std::to_string(i), {}};
        if (i % 10 == 0) packet.attachments.push_back(Data(std::to_string(i)));
        outbox.push(packet);
    }
    for (int i = 0; i < 5000; ++i) {
        ASSERT_EQ(outbox.count(), static_cast<std::size_t>(5000 - i));
        ASSERT_TRUE(outbox.front().text.ends_with(std::to_string(i)));
        ASSERT_EQ(outbox.front().attachments, i % 10 == 0 ? 1 : 0);
        if (i % 10 == 0) {
            ASSERT_EQ(outbox.takeAttachment().view(), std::to_string(i));
        }
        outbox.pop();
    }
    EXPECT_TRUE(outbox.empty());
}

TEST(FrameScanner, FindsWholeMessagesWhereverTheyAreCut) {
    using Verdict = FrameScanner::Verdict;
    const std::string ping = WebSocketPeer::frame("p", 0x89);
    const std::string fragmented = WebSocketPeer::frame("ab", 0x01) + ping + WebSocketPeer::frame(std::string(300, 'c'), 0x80);
    const std::string all = ping + WebSocketPeer::frame("text") + fragmented + WebSocketPeer::frame("");
    for (std::size_t cut = 0; cut <= all.size(); ++cut) {
        FrameScanner scanner(1024);
        std::vector<std::size_t> found;
        std::string buffered;
        for (const auto& part : {all.substr(0, cut), all.substr(cut)}) {
            buffered += part;
            for (;;) {
                const auto result = scanner.scan(buffered);
                if (result.verdict == Verdict::Incomplete) break;
                ASSERT_NE(result.verdict, Verdict::TooLarge);
                EXPECT_EQ(result.verdict == Verdict::Control, found.empty());
                found.push_back(result.bytes);
                buffered.erase(0, result.bytes);
            }
        }
        EXPECT_EQ(found, (std::vector<std::size_t>{ping.size(), 6, fragmented.size(), 2})) << cut;
    }
    EXPECT_EQ(FrameScanner(1024).scan(WebSocketPeer::frame(std::string(1025, 'x')).substr(0, 10)).verdict, Verdict::TooLarge);
    std::string flood;
    for (int i = 0; i < 40'000; ++i) flood += WebSocketPeer::frame("", 0x01);
    EXPECT_EQ(FrameScanner(1024).scan(flood).verdict, Verdict::TooLarge) << "fragments without end";
}

}  // namespace
}  // namespace vexim::testing
