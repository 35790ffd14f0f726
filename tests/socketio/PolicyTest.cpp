// Rules that are pure functions: when to reconnect, through which proxy, with which cookies and
// options.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <map>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "VexIMLib/internal/SocketIO/Client/PacketQueue.h"
#include "VexIMLib/internal/SocketIO/Client/SocketIOOptions.h"
#include "VexIMLib/internal/SocketIO/Protocol/CookieJar.h"
#include "VexIMLib/internal/SocketIO/Protocol/FrameScanner.h"
#include "VexIMLib/internal/SocketIO/Protocol/Namespace.h"
#include "VexIMLib/internal/SocketIO/Protocol/OpenPacket.h"
#include "VexIMLib/internal/SocketIO/Protocol/ReconnectPolicy.h"
#include "VexIMLib/internal/SocketIO/Transports/Proxy.h"
#include "socketio/Peers.h"
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
    // by attempt, after the fifth, and second
    std::map<std::pair<std::uint32_t, std::int64_t>, int> slots;
    for (int client = 0; client < 1000; ++client) {
        milliseconds at = 0ms;
        for (std::uint32_t attempt = 0; attempt < 12; ++attempt) {
            at += *reconnectDelay(policy, attempt, random.random().next32());
            if (attempt > 5) ++slots[{attempt, at / 1s}];
        }
    }
    for (const auto& [slot, count] : slots)
        EXPECT_LE(count, 80) << "attempt " << slot.first << " in second " << slot.second;
}

TEST(Proxy, IsWhatTheEnvironmentNames) {
    using Variables = std::map<std::string, std::string>;
    struct Row {
        const char* why;
        Variables variables;
        const char* expected;
        const char* host = "h";
        bool isSecure = true;
    };
    const Row rows[] = {
        {"none", {}, "", "h", false},
        {"plain", {{"http_proxy", "http://p:3128"}}, "p:3128 ", "h", false},
        {"upper case could come from a CGI request",
         {{"HTTP_PROXY", "http://p:3128"}},
         "",
         "h",
         false},
        {"TLS", {{"http_proxy", "http://a"}, {"HTTPS_PROXY", "b:8080"}}, "b:8080 "},
        {"for all", {{"all_proxy", "p:1"}}, "p:1 "},
        {"credentials", {{"https_proxy", "http://us%40er:p%3Aw@p:1"}}, "p:1 us@er:p:w"},
        {"a percent sign in a password", {{"https_proxy", "u:5%2525@p:1"}}, "p:1 u:5%25"},
        {"without a port", {{"https_proxy", "http://p"}}, "p:1080 "},
        {"a kind we do not speak", {{"https_proxy", "socks5://p:1"}}, ":0 "},
        {"nor pass by where all is asked for", {{"all_proxy", "https://p:1"}}, ":0 ", "h", false},
        {"this machine", {{"https_proxy", "socks5://p:1"}}, "", "127.0.0.1"},
        {"a name that looks like this machine",
         {{"https_proxy", "p:1"}},
         "p:1 ",
         "127.0.0.1.example"},
        {"exception",
         {{"https_proxy", "p:1"}, {"no_proxy", "a.b, example.com"}},
         "",
         "im.Example.com"},
        {"no exception for a mere suffix",
         {{"https_proxy", "p:1"}, {"no_proxy", "example.com"}},
         "p:1 ",
         "badexample.com"},
        {"exception with a dot",
         {{"https_proxy", "p:1"}, {"NO_PROXY", ".example.com"}},
         "",
         "im.example.com"},
        {"exception for a port", {{"https_proxy", "p:1"}, {"no_proxy", "h:444"}}, "p:1 "},
        {"exception for all", {{"https_proxy", "p:1"}, {"no_proxy", "*"}}, ""},
    };
    for (const auto& row : rows) {
        const auto proxy =
            proxyFor(row.isSecure, row.host, 443, [&](const char* name) -> const char* {
                const auto found = row.variables.find(name);
                return found == row.variables.end() ? nullptr : found->second.c_str();
            });
        const std::string login = proxy && proxy->user ? *proxy->user + ":" + proxy->password : "";
        const std::string shown =
            proxy ? proxy->host + ":" + std::to_string(proxy->port) + " " + login : "";
        EXPECT_EQ(shown, row.expected) << row.why;
    }
}

TEST(CookieJar, SendsBackWhatItWasGiven) {
    CookieJar jar;
    EXPECT_EQ(jar.header(), "");
    for (const char* cookie : {" io=abc; Path=/; HttpOnly", "AWSALB=x=y; Expires=Wed", "io=def",
                               "junk", "=nameless", "a=b\r\nX: y"}) {
        jar.store(cookie);
    }
    EXPECT_EQ(jar.header(), "io=def; AWSALB=x=y");
}

/// The options as one line.
std::string describe(const SocketIOOptions& options) {
    static constexpr const char* kTransports[] = {"websocket,polling", "websocket", "polling",
                                                  "polling,websocket"};
    const SessionConfig& session = options.session;
    std::ostringstream line;
    line << kTransports[static_cast<int>(session.transports)] << (options.log ? " log" : "")
         << (options.secure ? " secure" : "") << (options.transport.offerDeflate ? " deflate" : "")
         << (options.reconnect.enabled ? " reconnects" : "");
    if (options.reconnect.maxAttempts) line << " attempts=" << *options.reconnect.maxAttempts;
    line << " wait=" << options.reconnect.firstWait.count() << ".."
         << options.reconnect.longestWait.count() << " timeout=" << session.connectTimeout.count()
         << " message=" << session.maxMessageBytes << "/" << options.transport.maxMessageBytes
         << " queue=" << options.maxQueuedBytes << " ahead=" << options.maxReadAhead
         << " path=" << session.path;
    if (session.revision) line << " revision=" << static_cast<int>(*session.revision);
    if (!session.query.empty()) line << " query=" << session.query;
    if (!session.joinPayload.isNil()) line << " join=" << session.joinPayload.description();
    for (const auto& [name, value] : options.transport.headers) line << " " << name << ":" << value;
    return line.str();
}

TEST(Options, ReadEachKeyAndIgnoreWhatIsWrongInIt) {
    const std::string defaults =
        "websocket,polling reconnects wait=1000..30000 timeout=20000 message=16777216/16777216 queue=67108864 ahead=1048576 "
        "path=/socket.io/";
    EXPECT_EQ(describe(parseSocketIOOptions({}).options), defaults);
    struct Row {
        Dictionary options;
        const char* from;  // what changes in the line
        const char* to;
        std::vector<Value> wrong = {};  // for the last key
    };
    const Row rows[] = {
        {{{"forcePolling", true}}, "websocket,polling", "polling", {1, "true", Value::null()}},
        {{{"forceWebsockets", true}}, "websocket,polling", "websocket", {1, "yes"}},
        {{{"forcePolling", true}, {"forceWebsockets", true}}, "websocket,polling", "websocket"},
        {{{"forceWebsockets", false}}, "", ""},
        {{{"transports", Array{"polling", "websocket"}}},
         "websocket,polling",
         "polling,websocket",
         {"polling", Array{"pigeon"}, Array{}}},
        {{{"log", true}}, " reconnects", " log reconnects", {1, "yes"}},
        {{{"secure", true}}, " reconnects", " secure reconnects", {"https"}},
        {{{"selfSigned", true}}, "", "", {1}},
        {{{"compress", true}}, " reconnects", " deflate reconnects", {1}},
        {{{"reconnects", false}}, " reconnects", "", {0, "no"}},
        {{{"reconnectAttempts", 0}}, " wait", " attempts=0 wait", {true, 1.5, "3"}},
        {{{"reconnectAttempts", 7}}, " wait", " attempts=7 wait"},
        {{{"reconnectAttempts", -1}}, "", ""},
        {{{"reconnectWait", 0}}, "", "", {true, "5", std::nan("")}},
        {{{"reconnectWait", 2.5}}, "=1000..", "=2500.."},
        {{{"reconnectWait", 60}}, "=1000..30000", "=60000..60000"},
        {{{"reconnectWaitMax", 5}}, "30000", "5000", {"5", true}},
        {{{"connectTimeout", 2.5}}, "=20000", "=2500", {"5", true}},
        {{{"connectTimeout", 1e300}}, "=20000", "=315360000000"},
        {{{"maxMessageSize", 1000}}, "16777216/16777216", "1000/1000", {0, -1, 1.5, "1"}},
        {{{"maxMessageSize", std::int64_t{1} << 32}},
         "16777216/16777216",  // with sizes of 32 bits, 4 GiB must not become 0
         sizeof(void*) == 8 ? "4294967296/4294967296" : "2147483647/2147483647"},
        {{{"maxQueuedBytes", 1000}}, "67108864", "1000", {0, -1, true}},
        {{{"maxReadAhead", 1000}}, "1048576", "1000", {0, -1, "1"}},
        {{{"maxReadAhead", std::int64_t{1} << 40}}, "1048576", "33554432"},
        {{{"protocolVersion", 3}}, "io/", "io/ revision=3", {2, 5, "4", true}},
        {{{"path", "live"}}, "/socket.io/", "/live/", {"", 5, "a?b", "a#b"}},
        {{{"connectParams", Dictionary{{"n", 5}, {"t", true}, {"a b", "+&"}, {"l", Array{1}}}}},
         "io/",
         "io/ query=n=5&t=1&a%20b=%2B%26&l=%5B1%5D",
         {"a=b", Array{}}},
        {{{"joinPayload", Dictionary{}}},
         "io/",
         "io/ join={}",
         {"t", Array{}, Dictionary{{"d", Data("x", 1)}}}},
        {{{"extraHeaders", Dictionary{{"X-A", "b"}}}},
         "io/",
         "io/ X-A:b",
         {"X-A: b", Dictionary{{"X-A", 5}}, Dictionary{{"X-A", "b\r\nc"}},
          Dictionary{{"X A", "b"}}}},
        {{{"pinnedKeys", 5}}, "", ""},  // what is wrong with these ends the connection
        {{{"caFile", 5}}, "", ""},
        {{{"caPEM", 5}}, "", ""},
    };
    std::set<std::string> keys;
    for (const auto& row : rows) {
        const std::string key(row.options.keys().back());
        SCOPED_TRACE(key);
        keys.insert(key);
        std::string expected = defaults;
        if (*row.from) expected.replace(expected.find(row.from), std::strlen(row.from), row.to);
        const auto parsed = parseSocketIOOptions(row.options);
        EXPECT_EQ(describe(parsed.options), expected);
        EXPECT_EQ(parsed.complaints, std::vector<std::string>{});
        for (const Value& wrong : row.wrong) {
            const auto refused = parseSocketIOOptions({{key, wrong}});
            EXPECT_EQ(describe(refused.options), defaults) << wrong.description();
            EXPECT_EQ(refused.complaints,
                      std::vector<std::string>{"option \"" + key +
                                               "\" with a value of the wrong type or range"});
        }
    }
    EXPECT_EQ(keys.size(), 23u);
    EXPECT_EQ(parseSocketIOOptions({{"shouldLog", true}}).complaints,
              std::vector<std::string>{"unknown option \"shouldLog\""});
}

TEST(OpenPacket, AllowsAtLeastWhatMemoryHoldsWhereABodyMayBeLarger) {
    const auto open = parseOpenPacket(
        R"({"sid":"s","pingInterval":25000,"pingTimeout":20000,"maxPayload":4294967296})");
    ASSERT_TRUE(open);
    EXPECT_GE(open->maxPayload, std::size_t{1} << 30);
    const auto unlimited =
        parseOpenPacket(R"({"sid":"s","pingInterval":25000,"pingTimeout":20000,"maxPayload":0})");
    ASSERT_TRUE(unlimited);
    EXPECT_EQ(unlimited->maxPayload, std::nullopt);
}

TEST(Namespace, IsReadInTheFormOfPackets) {
    const struct {
        const char *why, *given, *name, *query;
    } rows[] = {
        {"nothing", "", "/", ""},
        {"no slash", "chat", "/chat", ""},
        {"a query", "/chat?a=1?b,c", "/chat", "a=1?b,c"},
        {"only a query", "?a=1", "/", "a=1"},
        {"a comma, which would end it", ",ch,at,", "/chat", ""},
    };
    for (const auto& row : rows) {
        const auto parsed = parseNamespace(row.given);
        EXPECT_EQ(parsed.name, row.name) << row.why;
        EXPECT_EQ(parsed.query, row.query) << row.why;
    }
}

TEST(Options, NeverDowngradeASecureUrl) {
    const std::pair<const char*, bool> rows[] = {
        {"https://h", false}, {"wss://h", false}, {"http://h", true}, {"ws://h", true}};
    for (const auto& [url, secure] : rows) {
        const auto endpoint = endpointOf(URL::parse(url), secure);
        ASSERT_TRUE(endpoint) << url;
        EXPECT_TRUE(endpoint->isSecure) << url;
        EXPECT_EQ(endpoint->port, 443) << url;
    }
    EXPECT_EQ(endpointOf(URL::parse("http://[::1]:8080"), false)->authority(), "[::1]:8080");
    EXPECT_EQ(endpointOf(URL::parse("http://h"), false)->authority(), "h");
}

TEST(PacketQueue, GivesBackWhatWasPutIn) {
    PacketQueue queue;
    for (int i = 0; i < 5000; ++i) {
        EncodedPacket packet{std::string(static_cast<std::size_t>(i % 97), 'x') + std::to_string(i),
                             {}};
        if (i % 10 == 0) packet.attachments.emplace_back(std::to_string(i));
        queue.push(packet);
    }
    for (int i = 0; i < 5000; ++i) {
        ASSERT_EQ(queue.count(), static_cast<std::size_t>(5000 - i));
        ASSERT_TRUE(queue.front().text.ends_with(std::to_string(i)));
        ASSERT_EQ(queue.front().attachments, i % 10 == 0 ? 1 : 0);
        if (i % 10 == 0) {
            ASSERT_EQ(queue.takeAttachment().view(), std::to_string(i));
        }
        queue.pop();
    }
    EXPECT_TRUE(queue.empty());
}

TEST(FrameScanner, FindsWholeFramesWhereverTheyAreCut) {
    using Verdict = FrameScanner::Verdict;
    const std::vector<std::string> frames{frame("p", 0x89),  frame("text"),
                                          frame("ab", 0x01), frame("p", 0x8A),
                                          frame("", 0x00),   frame(std::string(300, 'c'), 0x80),
                                          frame(""),         frame("bytes", 0x82)};
    std::string all;
    for (const auto& each : frames) all += each;
    for (std::size_t cut = 0; cut <= all.size(); ++cut) {
        FrameScanner scanner(1024);
        std::vector<std::string> found;
        std::string buffered;
        for (const auto& part : {all.substr(0, cut), all.substr(cut)}) {
            buffered += part;
            for (;;) {
                const auto result = scanner.scan(buffered);
                if (result.verdict == Verdict::Incomplete) break;
                ASSERT_EQ(result.verdict, Verdict::Whole);
                found.push_back(buffered.substr(0, result.bytes));
                buffered.erase(0, result.bytes);
            }
        }
        EXPECT_EQ(found, frames) << cut;
    }
}

TEST(FrameScanner, JudgesAFrameByItsFirstBytes) {
    using Verdict = FrameScanner::Verdict;
    using namespace std::string_literals;
    struct Row {
        const char* why;
        std::string before;
        std::string head;
        Verdict verdict;
        Verdict compressed = Verdict::Malformed;  // when compression was agreed on
    };
    const std::string begun = frame("x", 0x01);
    const Row rows[] = {
        {"RSV1, which compression takes", "", "\xC1", Verdict::Malformed, Verdict::Incomplete},
        {"RSV1 in a later fragment", begun, "\xC0", Verdict::Malformed},
        {"RSV1 in a ping", "", "\xC9", Verdict::Malformed},
        {"RSV2", "", "\xA1", Verdict::Malformed},
        {"RSV3", "", "\x91", Verdict::Malformed},
        {"the first unknown opcode", "", "\x83", Verdict::Malformed},
        {"the last unknown opcode of data", "", "\x87", Verdict::Malformed},
        {"an unknown control opcode", "", "\x8B", Verdict::Malformed},
        {"a ping in fragments", "", "\x09", Verdict::Malformed},
        {"a continuation frame without a message", "", "\x80", Verdict::Malformed},
        {"a new message inside another", begun, "\x81", Verdict::Malformed},
        {"masked", "", "\x81\x85", Verdict::Malformed},
        {"a long ping", "", "\x89\x7E", Verdict::Malformed},
        {"two bytes for a short length", "", "\x81\x7E\x00\x7D"s, Verdict::Malformed},
        {"eight bytes for a length of two", "", "\x82\x7F\0\0\0\0\0\0\xFF\xFF"s,
         Verdict::Malformed},
        {"over the limit", "", "\x81\x7E\x04\x01", Verdict::TooLarge, Verdict::TooLarge},
        {"over the limit with what came before", begun, "\x00\x7E\x04\x00"s, Verdict::TooLarge,
         Verdict::TooLarge},
        {"an exabyte", "", "\x81\x7F\x0F\xFF\xFF\xFF\xFF\xFF\xFF\xFF", Verdict::TooLarge,
         Verdict::TooLarge},
        {"as long as allowed", "", "\x81\x7E\x04\x00"s, Verdict::Incomplete, Verdict::Incomplete},
    };
    for (const auto& row : rows) {
        for (const bool compresses : {false, true}) {
            FrameScanner scanner(1024);
            if (compresses) scanner.allowCompression();
            EXPECT_EQ(scanner.scan(row.before).verdict,
                      row.before.empty() ? Verdict::Incomplete : Verdict::Whole);
            EXPECT_EQ(scanner.scan(row.head).verdict, compresses ? row.compressed : row.verdict)
                << row.why;
        }
    }
}

}  // namespace
}  // namespace vexim::testing
