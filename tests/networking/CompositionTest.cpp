#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <limits>
#include <optional>
#include <string>

#include "VexIMLib/Foundation/Error.h"
#include "VexIMLib/Foundation/Exception.h"
#include "VexIMLib/Testing/ManualClock.h"
#include "VexIMLib/VXIMClientConfiguration.h"
#include "VexIMLib/VXIMSettings.h"
#include "VexIMLib/internal/Networking/VXIMRequest.h"
#include "VexIMLib/internal/Networking/VXIMUtils.h"
#include "VexIMLib/internal/Platform/Facts/DeviceInfo.h"
#include "VexIMLib/internal/Platform/Files/InputStream.h"
#include "VexIMLib/internal/Platform/Loading/URLRequest.h"
#include "support/TemporaryFolder.h"

using vexim::Array;
using vexim::Data;
using vexim::Dictionary;
using vexim::Value;

namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;

class CompositionTest : public ::testing::Test {
protected:
    void SetUp() override {
        auto configuration = VXIMClientConfiguration::defaultConfiguration();
        configuration->setAppId("app-1");
        configuration->setClientKey("key");
        configuration->setSocketURL(vexim::URL::parse("https://im.example:8443"));
        vxim_configuration = configuration;
    }
    void TearDown() override { vxim_configuration = nullptr; }

    std::string composed(const std::optional<std::string>& path, const Value& params = nullptr) {
        auto url = VXIMRequest::request()->composeURLWithPath(path, params);
        return url ? url->absoluteString() : "no URL";
    }

    vexim::testing::ManualClock clock{1700000000};
};

TEST_F(CompositionTest, DigestsMatchPublishedVectors) {
    EXPECT_EQ(VXIMUtils::md5FromString(""), "d41d8cd98f00b204e9800998ecf8427e");
    EXPECT_EQ(VXIMUtils::md5FromString("abc"), "900150983cd24fb0d6963f7d28e17f72");
    EXPECT_EQ(VXIMUtils::md5FromString("message digest"), "f96b697d7cb7938d525a2f31aaf161d0");
    EXPECT_EQ(VXIMUtils::md5FromData(Data("abc")), "900150983cd24fb0d6963f7d28e17f72");
    EXPECT_EQ(VXIMUtils::md5FromData(std::nullopt), std::nullopt);
}

TEST_F(CompositionTest, SignatureIsTheDigestOfSecondsAndKeyRoundedHalvesUp) {
    const struct {
        const char* why;
        double time;
        const char* signature;
    } cases[] = {
        {"whole seconds", 1700000000, "e8991b63f68a1799f9d206a8c4608ff3,1700000000"},
        {"below a half rounds down", 1700000000.49, "e8991b63f68a1799f9d206a8c4608ff3,1700000000"},
        {"a half rounds up", 1700000000.5, "a975a25a739db41db75768732914dbc3,1700000001"},
    };
    for (const auto& test : cases) {
        vexim::testing::ManualClock then(test.time);
        EXPECT_EQ(VXIMUtils::signatureForClientKey("key"), test.signature) << test.why;
        EXPECT_NE(VXIMUtils::signatureForClientKey("another key"), test.signature)
            << "of the same second";
    }
    EXPECT_EQ(VXIMUtils::signatureForClientKey(std::nullopt), std::nullopt);
    EXPECT_EQ(VXIMUtils::signatureForClientKey(""), std::nullopt);
}

TEST_F(CompositionTest, ADirectoryReplacesWhateverStandsInItsPlace) {
    const vexim::testing::TemporaryFolder root;
    VXIMUtils::ensureDirExist(root / "a" / "b");
    EXPECT_TRUE(fs::is_directory(root / "a" / "b"));

    std::ofstream(root / "a" / "kept") << "x";
    VXIMUtils::ensureDirExist(root / "a");
    EXPECT_TRUE(fs::exists(root / "a" / "kept"));

    std::ofstream(root / "file") << "x";
    VXIMUtils::ensureDirExist(root / "file");
    EXPECT_TRUE(fs::is_directory(root / "file"));

    VXIMUtils::ensureDirExist(std::nullopt);
    VXIMUtils::ensureDirExist("");
    VXIMUtils::ensureDirExist("/proc/nowhere/at/all");  // fails silently
}

TEST_F(CompositionTest, AFreshRequestTakesItsCredentialsFromTheConfigurationOnce) {
    auto request = VXIMRequest::request();
    EXPECT_EQ(request->method(), "GET");
    EXPECT_EQ(request->retryCount(), 0);
    EXPECT_EQ(request->headers(), (Dictionary{{"Content-Type", "application/json"}}));

    vxim_configuration.get()->setAppId("app-2");
    EXPECT_EQ(request->appId(), "app-1");
    EXPECT_EQ(VXIMRequest::request()->appId(), "app-2");

    vxim_configuration = nullptr;
    EXPECT_EQ(VXIMRequest::request()->appId(), std::nullopt);
    EXPECT_EQ(request->baseUrl(), std::nullopt);
}

TEST_F(CompositionTest, BodyTakesOnlyContainersAndNil) {
    auto request = VXIMRequest::request();
    request->setBody(Dictionary{{"a", 1}});
    request->setBody("text");
    request->setBody(5);
    EXPECT_EQ(request->body(), Value(Dictionary{{"a", 1}}));
    request->setBody(Array{1});
    EXPECT_EQ(request->body(), Value(Array{1}));
    request->setBody(nullptr);
    EXPECT_TRUE(request->body().isNil());
}

TEST_F(CompositionTest, ComposesAbsoluteURLs) {
    const struct {
        const char* why;
        std::optional<std::string> path;
        Value params;
        const char* url;
    } cases[] = {
        {"a slash is added", "users", nullptr, "https://im.example:8443/users"},
        {"a slash is kept", "/users", nullptr, "https://im.example:8443/users"},
        {"no path", std::nullopt, nullptr, "https://im.example:8443"},
        {"no path but a query", std::nullopt, Dictionary{{"a", "1"}},
         "https://im.example:8443?a=1"},
        {"an absolute URL stands alone", "http://else/where", nullptr, "http://else/where"},
        {"anything that begins with http counts as absolute", "https://x/?a=1",
         Dictionary{{"b", "2"}}, "https://x/?a=1&b=2"},
        {"parameters in their own order", "/q", Dictionary{{"z", "1"}, {"a", "2"}},
         "https://im.example:8443/q?z=1&a=2"},
        {"a path with a query gets an ampersand", "/q?a=1", Dictionary{{"b", "2"}},
         "https://im.example:8443/q?a=1&b=2"},
        {"no question mark for nothing", "/q", Dictionary{}, "https://im.example:8443/q"},
        {"what is no dictionary adds nothing", "/q", Array{"a"}, "https://im.example:8443/q"},
        {"an id with a blank makes no URL", "/ctx/a b", nullptr, "no URL"},
    };
    for (const auto& test : cases)
        EXPECT_EQ(composed(test.path, test.params), test.url) << test.why;

    vxim_configuration.get()->setSocketURL(vexim::URL::parse("https://im.example/"));
    EXPECT_EQ(composed("users"), "https://im.example//users") << "nothing is normalised";
}

TEST_F(CompositionTest, QueryValuesAreEscapedWeaklyAndKeysNotAtAll) {
    auto request = VXIMRequest::request();
    const std::pair<const char*, const char*> cases[] = {
        {"a b", "k=a%20b"},
        {"a&b=c+d", "k=a&b=c+d"},
        {"/?:@,;$", "k=/?:@,;$"},
        {"100%", "k=100%25"},
        {"\"<>", "k=%22%3C%3E"},
        {"#[]", "k=%23%5B%5D"},
        {"\xC3\xA9\xE2\x82\xAC", "k=%C3%A9%E2%82%AC"},
        {"", "k="},
    };
    for (const auto& [value, query] : cases)
        EXPECT_EQ(request->composeQueryString(Dictionary{{"k", value}}), query);
    EXPECT_EQ(request->composeQueryString(Dictionary{{"a b", "1"}}), "a b=1");
    EXPECT_EQ(request->composeQueryString(Dictionary{}), "");
    EXPECT_EQ(request->composeQueryString(nullptr), std::nullopt);
    EXPECT_EQ(request->composeQueryString("k=v"), std::nullopt);
    try {
        request->composeQueryString(Dictionary{{"k", 5}});
        FAIL() << "numbers are not converted";
    } catch (const vexim::Exception& exception) {
        EXPECT_EQ(exception.name(), vexim::kInvalidArgumentException);
    }
}

TEST_F(CompositionTest, HeadersOfACallerWinAndEveryBuildSignsAnew) {
    auto request = VXIMRequest::request();
    auto headers = request->buildHeaders();
    EXPECT_EQ(headers.keys().front(), "User-Agent");
    EXPECT_EQ(headers.get("X-VX-Request-Sign"),
              Value("e8991b63f68a1799f9d206a8c4608ff3,1700000000"));
    EXPECT_EQ(headers.get("X-VX-AppId"), Value("app-1"));
    EXPECT_EQ(headers.get("Content-Type"), Value("application/json"));
    EXPECT_FALSE(headers.contains("X-VX-Session-Token"));
    request->setSessionToken("");
    EXPECT_FALSE(request->buildHeaders().contains("X-VX-Session-Token"));

    clock.advance(1s);
    request->setSessionToken("token");
    request->headers().set("User-Agent", "mine");
    request->setValueForHTTPHeaderField(std::nullopt, "Content-Type");
    headers = request->buildHeaders();
    EXPECT_EQ(headers.get("X-VX-Request-Sign"),
              Value("a975a25a739db41db75768732914dbc3,1700000001"));
    EXPECT_EQ(headers.get("X-VX-Session-Token"), Value("token"));
    EXPECT_EQ(headers.get("User-Agent"), Value("mine"));
    EXPECT_FALSE(headers.contains("Content-Type"));

    auto spelled = VXIMRequest::request();
    spelled->headers() = {{"user-agent", "mine"}, {"x-vx-request-sign", "forged"}};
    const auto sent = spelled->urlRequest().headers;
    EXPECT_EQ(sent.value("User-Agent"), "mine") << "once, however it is spelled";
    EXPECT_EQ(sent.value("X-VX-Request-Sign"), "a975a25a739db41db75768732914dbc3,1700000001");
}

TEST_F(CompositionTest, TheUserAgentNamesBundleAndSystemAndPrintsWhatIsMissing) {
    const auto before = vexim::deviceInfo();
    vexim::setDeviceInfo({"com.example.chat", "42", "17.1", 2000});
    EXPECT_EQ(VXIMRequest::request()->generateUserAgent(), "com.example.chat/42 iOS/17.1");
    vexim::setApplicationInfo({"org.example", "7", std::nullopt});
    EXPECT_EQ(VXIMRequest::request()->generateUserAgent(), "org.example/7 iOS/17.1");
    vexim::setDeviceInfo({std::nullopt, std::nullopt, "17.1", 2000});
    EXPECT_EQ(VXIMRequest::request()->generateUserAgent(), "(null)/(null) iOS/17.1");
    vexim::setDeviceInfo(before);
}

TEST_F(CompositionTest, WithoutAKeyNothingIsSignedAndNoApplicationNamed) {
    auto request = VXIMRequest::request();
    request->setClientKey("");
    const auto headers = request->buildHeaders();
    EXPECT_FALSE(headers.contains("X-VX-Request-Sign"));
    EXPECT_FALSE(headers.contains("X-VX-AppId"));

    auto anonymous = VXIMRequest::request();
    anonymous->setAppId(std::nullopt);
    EXPECT_TRUE(anonymous->buildHeaders().contains("X-VX-Request-Sign"));
    EXPECT_FALSE(anonymous->buildHeaders().contains("X-VX-AppId"));
}

TEST_F(CompositionTest, URLRequestCarriesTheBodyUnlessItIsAGet) {
    auto request = VXIMRequest::request();
    request->setPath("/groups");
    request->setBody(Dictionary{{"name", "x"}, {"n", Array{1, true, Value::null()}}});
    request->setBodyStream(vexim::InputStream::withData(Data("stream")));
    request->headers().set("X-Number", 5);
    auto get = request->urlRequest();
    EXPECT_TRUE(get.body.empty());
    EXPECT_FALSE(get.bodyStream);
    EXPECT_FALSE(get.headers.contains("X-Number")) << "what is no string is skipped";

    request->setMethod("POST");
    auto post = request->urlRequest();
    EXPECT_EQ(post.method, "POST");
    EXPECT_EQ(post.body.view(), R"({"name":"x","n":[1,true,null]})");
    EXPECT_FALSE(post.bodyStream) << "a body wins over a stream";

    request->setBody(nullptr);
    EXPECT_EQ(request->urlRequest().bodyStream, request->bodyStream());
    EXPECT_EQ(request->urlRequest().trust.fault, "");
    vxim_configuration.get()->dictionary().set("caPEM", "");
    EXPECT_NE(request->urlRequest().trust.fault, "") << "the application's trust is the request's";
}

TEST_F(CompositionTest, ABodyThatIsNoJSONRaisesWithItsReason) {
    auto request = VXIMRequest::request();
    request->setMethod("POST");
    request->setPath("/groups");
    request->setBody(Dictionary{{"bad", std::numeric_limits<double>::quiet_NaN()}});
    try {
        request->urlRequest();
        FAIL() << "must raise";
    } catch (const vexim::Exception& exception) {
        EXPECT_EQ(exception.name(), vexim::kInternalInconsistencyException);
        EXPECT_TRUE(
            exception.reason().starts_with("failed to serialize request body object, error: "))
            << exception.reason();
    }
}

}  // namespace
