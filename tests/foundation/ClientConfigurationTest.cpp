#include "VexIMLib/VXIMClientConfiguration.h"

#include <gtest/gtest.h>

#include <string>

#include "VexIMLib/Foundation/Array.h"
#include "VexIMLib/VXIMConstants.h"
#include "support/Raised.h"

TEST(VXIMClientConfiguration, WritesAnOptionOnlyOnceItWasSet) {
    EXPECT_EQ(VXIMClientConfiguration::defaultConfiguration()->dictionary(),
              vexim::Dictionary({{"forceWebsockets", true}}));

    const auto plain = VXIMClientConfiguration::init();
    EXPECT_FALSE(plain->socketURL());
    EXPECT_FALSE(plain->nsp());
    EXPECT_TRUE(plain->dictionary().empty());
    plain->setForcePolling(false);
    plain->setForceWebsockets(false);
    plain->setShouldLog(true);
    plain->setAutoReconnect(false);
    plain->setReconnectAttempts(std::int64_t{1} << 40);
    plain->setReconnectWait(5);
    plain->setSecure(false);
    plain->setSelfSigned(true);
    EXPECT_EQ(plain->dictionary(), vexim::Dictionary({{"forcePolling", false},
                                                      {"forceWebsockets", false},
                                                      {"log", true},
                                                      {"reconnects", false},
                                                      {"reconnectAttempts", std::int64_t{1} << 40},
                                                      {"reconnectWait", 5},
                                                      {"secure", false},
                                                      {"selfSigned", true}}));
}

TEST(VXIMClientConfiguration, RefusesWhatWouldTrustTheWrongServer) {
    const auto configuration = VXIMClientConfiguration::init();
    const std::string pin = std::string(43, 'A') + "=";
    configuration->setPinnedKeys({pin});
    configuration->setCaFile("ca.pem");
    const vexim::Dictionary expected{{"pinnedKeys", vexim::Array{pin}}, {"caFile", "ca.pem"}};
    EXPECT_EQ(
        vexim::testing::raised([&] {
            configuration->setPinnedKeys({pin, "AAAA"});
        }),
        "NSInvalidArgumentException: A pin must be the base64 of a key's SHA-256 digest, 44 characters.");
    const std::pair<const char*, std::string> pins[] = {
        {"bits that a digest does not have", std::string(42, 'A') + "B="},
        {"31 bytes", std::string(42, 'A') + "=="},
        {"a blank for a letter", " " + std::string(42, 'A') + "="},
    };
    for (const auto& [why, text] : pins) EXPECT_FALSE(VXIMClientConfiguration::isPin(text)) << why;
    EXPECT_EQ(vexim::testing::raised([&] { configuration->setCaFile(""); }),
              "NSInvalidArgumentException: caFile must not be empty.");
    EXPECT_EQ(vexim::testing::raised([&] { configuration->setCaPEM(""); }),
              "NSInvalidArgumentException: caPEM must not be empty.");
    EXPECT_EQ(configuration->dictionary(), expected) << "nothing of it was set";
    configuration->setPinnedKeys({});
    configuration->setCaFile(std::nullopt);
    EXPECT_TRUE(configuration->dictionary().empty());
}

TEST(VXIMClientConfiguration, DictionaryIsTheOwnersOne) {
    const auto configuration = VXIMClientConfiguration::init();
    configuration->dictionary().set("extra", 1);
    EXPECT_EQ(configuration->dictionary().get("extra"), 1);
    configuration->setDictionary(vexim::Dictionary{{"log", true}});
    EXPECT_FALSE(configuration->shouldLog());
    configuration->setDictionary(std::nullopt);
    EXPECT_TRUE(configuration->dictionary().empty());
}

TEST(VXIMClientConfiguration, DefaultsToTheServiceOverTLSWithoutAPath) {
    const auto configuration = VXIMClientConfiguration::defaultConfiguration();
    ASSERT_TRUE(configuration->socketURL());
    EXPECT_EQ(configuration->socketURL()->scheme(), "https");
    EXPECT_EQ(configuration->socketURL()->encodedPath(), "");
    EXPECT_EQ(configuration->nsp(), "/chat");
    EXPECT_FALSE(configuration->appId());
}

TEST(VXIMConfigurationSlot, ReadsAndWritesLikeASharedPointer) {
    EXPECT_FALSE(vxim_configuration);
    auto configuration = VXIMClientConfiguration::init();
    configuration->setAppId("app");
    vxim_configuration = configuration;
    std::weak_ptr<VXIMClientConfiguration> weak = configuration;
    configuration = nullptr;
    EXPECT_EQ(vxim_configuration->appId(), "app");
    std::shared_ptr<VXIMClientConfiguration> read = vxim_configuration;
    EXPECT_EQ(read, weak.lock());
    read = nullptr;
    vxim_configuration = nullptr;
    EXPECT_TRUE(weak.expired());
}

TEST(Constants, AreExportedWithTheirValues) {
    EXPECT_STREQ(VXIMFriendOfflineNotification, "VXIMFriendOfflineNotification");
    EXPECT_STREQ(VXIMErrorDomain, "VXIMErrorDomain");
    EXPECT_STREQ(VXErrorDomain, "VXErrorDomain");
    EXPECT_EQ(VexIMLibVersionNumber, 1.0);
    EXPECT_TRUE(std::string(reinterpret_cast<const char*>(VexIMLibVersionString))
                    .starts_with("@(#)PROGRAM:VexIMLib  PROJECT:VexIMLib-1"));
    EXPECT_EQ(kVXIMAFUploadStream3GSuggestedPacketSize, 16384u);
    EXPECT_EQ(kVXIMAFUploadStream3GSuggestedDelay, 0.2);
}
