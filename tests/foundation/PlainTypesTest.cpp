#include <gtest/gtest.h>

#include <chrono>
#include <limits>
#include <set>
#include <string>
#include <vector>

#include "VexIMLib/Foundation/Clock.h"
#include "VexIMLib/Foundation/Data.h"
#include "VexIMLib/Foundation/Date.h"
#include "VexIMLib/Foundation/Image.h"
#include "VexIMLib/Foundation/Log.h"
#include "VexIMLib/Foundation/Random.h"
#include "VexIMLib/Foundation/Value.h"
#include "VexIMLib/Testing/ManualClock.h"
#include "VexIMLib/VXIMDiagnosis.h"
#include "VexIMLib/internal/Foundation/Text/Base64.h"
#include "support/LogCapture.h"
#include "support/SeededRandom.h"

using namespace vexim;
using namespace std::chrono_literals;

TEST(Data, SharesAndTakesBuffersOverAndGivesThemBack) {
    std::string text(1000, 'x');
    const char* buffer = text.data();
    auto data = Data::fromString(std::move(text));
    const Data copy = data;
    EXPECT_EQ(copy.view().data(), buffer);
    EXPECT_EQ(std::move(data).takeString(), copy.view());  // a copy, because another one reads it
    data = Data::fromString(std::string(1000, 'x'));
    buffer = data.view().data();
    EXPECT_EQ(std::move(data).takeString().data(), buffer);
    data = copy;
    std::vector<std::uint8_t> bytes(1000, 'x');
    const auto* start = bytes.data();
    const Data other(std::move(bytes));
    EXPECT_EQ(other.bytes(), start);
    EXPECT_EQ(other, copy);
    EXPECT_EQ(Data(other).takeString(), copy.view());
    EXPECT_NE(other, Data("x"));
    EXPECT_EQ(Data(std::string_view()), Data());
    EXPECT_EQ(Value(data).description().size(),
              std::string("{length = 1000, bytes = 0x}").size() + 48 + std::string("…").size());
}

TEST(Base64, WritesAndReadsThePublishedTexts) {
    const std::pair<const char*, const char*> cases[] = {
        // RFC 4648, section 10
        {"", ""},
        {"f", "Zg=="},
        {"fo", "Zm8="},
        {"foo", "Zm9v"},
        {"foob", "Zm9vYg=="},
        {"fooba", "Zm9vYmE="},
        {"foobar", "Zm9vYmFy"},
        {"\xfb\xff", "+/8="},
    };
    for (const auto& [bytes, text] : cases) {
        EXPECT_EQ(encodeBase64(bytes), text);
        EXPECT_EQ(decodeBase64(text), bytes);
    }
    EXPECT_EQ(decodeBase64("Zh=="), "f") << "bits that nothing needs";
    // longer than one piece of reading and writing, with each kind of padding
    for (const std::size_t size : {3'145'728U, 3'145'729U, 6'291'458U}) {
        std::string bytes(size, '\0');
        for (std::size_t i = 0; i < size; ++i) bytes[i] = static_cast<char>(i * 7 + i / 251);
        const std::string text = encodeBase64(bytes);
        EXPECT_EQ(text.size(), (size + 2) / 3 * 4);
        EXPECT_TRUE(decodeBase64(text) == bytes) << size;
    }
}

TEST(Base64, RefusesWhatIsNotWholeGroupsOfTheAlphabet) {
    const std::pair<const char*, const char*> cases[] = {
        {"no padding", "Zg"},
        {"half a padding", "Zg="},
        {"padding that makes a group of its own", "Zm9v===="},
        {"only padding", "===="},
        {"three paddings", "Z==="},
        {"padding before the end", "Zg==Zm9v"},
        {"padding inside a group", "Z=9v"},
        {"a blank before", " Zm9"},
        {"a line end behind", "Zm9v\r\n\r\n"},
        {"a blank inside", "Zm 9v Yg"},
        {"the mark of an end", "Zm9v----"},
        {"the alphabet of URLs", "-_8="},
        {"a byte above ASCII", "Zm9\xfc"},
    };
    for (const auto& [why, text] : cases) EXPECT_FALSE(decodeBase64(text)) << why;
    EXPECT_FALSE(decodeBase64(std::string_view("Zm9\0", 4)));
}

TEST(Date, ConvertsToTheMicrosecondAndSaturates) {
    const std::pair<double, std::chrono::microseconds> cases[] = {
        {0.0, 0us}, {1700000000.123456, 1700000000123456us}, {-1.5, -1500000us}, {0.0000006, 1us}};
    for (const auto& [seconds, micros] : cases) {
        EXPECT_EQ(Date::fromTimeIntervalSince1970(seconds).timePoint().time_since_epoch(), micros)
            << seconds;
    }
    for (double endless : {1e300, -1e300}) {
        const auto date = Date::fromTimeIntervalSince1970(endless);
        EXPECT_EQ(date.timePoint() > std::chrono::system_clock::time_point(), endless > 0);
    }
    EXPECT_LT(Date::fromTimeIntervalSince1970(1), Date::fromTimeIntervalSince1970(2));
}

TEST(Clock, IsReplacedForEverybodyAndPutBack) {
    {
        vexim::testing::ManualClock clock(1000);
        const auto began = Clock::shared()->now();
        clock.advance(1500ms);
        EXPECT_EQ(Clock::shared()->now() - began, 1500ms);
        EXPECT_EQ(Date::now().timeIntervalSince1970(), 1001.5);
    }
    EXPECT_EQ(Clock::shared(), Clock::system());
    EXPECT_GT(Date::now().timeIntervalSince1970(), 1.7e9);
}

TEST(Random, IsReplacedForEverybodyAndPutBack) {
    std::vector<std::uint32_t> runs[2];
    for (auto& run : runs) {
        vexim::testing::SeededRandom random(42);
        for (int i = 0; i < 5; ++i) run.push_back(Random::shared()->next32());
    }
    EXPECT_EQ(runs[0], runs[1]);
    EXPECT_EQ(Random::shared(), Random::system());
    // enough for a few refills; two numbers are equal in about one of a thousand runs
    std::set<std::uint32_t> drawn;
    for (int i = 0; i < 3000; ++i) drawn.insert(Random::system()->next32());
    EXPECT_GT(drawn.size(), 2990u);
}

TEST(Log, GoesToTheSinkThatIsSet) {
    {
        vexim::testing::LogCapture capture;
        log(LogLevel::Warning, "heard");
        EXPECT_EQ(capture.lines(), std::vector<std::string>{"heard"});
    }
    log(LogLevel::Error, "to nobody");
    int calls = 0;
    setLogSink(LogLevel::Warning, [&calls](LogLevel level, std::string_view) {
        ++calls;
        log(level, "a sink that logs does not hear itself");
        throw 1;  // and its exception is dropped
    });
    for (const auto level : {LogLevel::Info, LogLevel::Warning, LogLevel::Error})
        log(level, "line");
    setLogSink(nullptr);
    EXPECT_EQ(calls, 2) << "the level that was asked for, and above";
}

TEST(Diagnosis, WritesTimesToTheMillisecondThatHasBegun) {
    const VXIMDiagnosis diagnosis({{0.0006, "a", {}}, {1.9999, "b", {{"isLate", true}}}});
    EXPECT_EQ(diagnosis.text(),
              "1970-01-01T00:00:00.000Z a\n1970-01-01T00:00:01.999Z b isLate=yes\n");
}

TEST(Image, TakesExactlyTheRightNumberOfPixels) {
    EXPECT_TRUE(Image::fromPixels(2, 3, std::vector<std::uint8_t>(24)));
    EXPECT_TRUE(Image::fromPixels(65535, 1, std::vector<std::uint8_t>(65535 * 4)));
    EXPECT_FALSE(Image::fromPixels(2, 3, std::vector<std::uint8_t>(23)));
    EXPECT_FALSE(Image::fromPixels(0, 3, {}));
    EXPECT_FALSE(Image::fromPixels(65536, 1, std::vector<std::uint8_t>(65536 * 4)));
    EXPECT_FALSE(Image::fromPixels(65536, 65536, {}))
        << "width times height times four is 0 in 32 bits";
}
