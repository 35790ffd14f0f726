#include "VexIMLib/Foundation/JSON.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <random>
#include <string>
#include <thread>

using namespace vexim;

namespace {

Value read(std::string_view text) {
    auto result = parseJSON(text, JSONFragments::Allow);
    EXPECT_FALSE(result.error) << text << ": " << result.error->localizedDescription();
    return result.value;
}

std::string written(const Value& value) {
    auto result = writeJSON(value, JSONFragments::Allow);
    EXPECT_FALSE(result.error) << result.error->localizedDescription();
    return result.text;
}

std::string repeated(std::string_view text, std::size_t count) {
    std::string all;
    for (std::size_t i = 0; i < count; ++i) all += text;
    return all;
}

class RandomTree {
public:
    explicit RandomTree(unsigned seed) : random_(seed) {}
    Value value(int depth) {
        switch (random_() % (depth > 0 ? 9 : 7)) {
            case 0: return Value::null();
            case 1: return random_() % 2 == 0;
            case 2: return static_cast<std::int64_t>(random_());
            case 3: return random_() | (std::uint64_t{1} << 63);
            case 4: return real();
            case 5:
            case 6: return text();
            case 7: {
                Array array;
                for (auto count = random_() % 20; count > 0; --count)
                    array.append(value(depth - 1));
                return array;
            }
            default: {
                Dictionary dictionary;
                for (auto count = random_() % 30; count > 0; --count)
                    dictionary.set(text(), value(depth - 1));
                return dictionary;
            }
        }
    }

private:
    double real() {
        for (;;) {
            const auto bits = random_();
            double number;
            std::memcpy(&number, &bits, sizeof(number));
            if (std::isfinite(number)) return number;
        }
    }
    std::string text() {
        static const char* const kPieces[] = {"a",    "\"", "\\", "/", "\n", "\x01",
                                              "\x7f", "ü",  "€",  "😀", "\0", "longer piece"};
        std::string text;
        for (auto count = random_() % 8; count > 0; --count)
            text += kPieces[random_() % std::size(kPieces)];
        return text;
    }
    std::mt19937_64 random_;
};

}  // namespace

TEST(JSON, ReadsEachKindExactly) {
    const std::pair<const char*, Value> cases[] = {
        {"null", Value::null()},
        {"true", true},
        {"0", 0},
        {"-9223372036854775808", std::numeric_limits<std::int64_t>::min()},
        {"9007199254740993", 9007199254740993},
        {"18446744073709551615", std::numeric_limits<std::uint64_t>::max()},
        {"18446744073709551616", 18446744073709551616.0},
        {"-9223372036854775809", -9223372036854775809.0},
        {"5.0", 5.0},
        {"1E2", 100.0},
        {"-0.0", -0.0},
        {"2.2250738585072011e-308", 2.2250738585072011e-308},
        {"0.1000000000000000055511151231257827", 0.1},
        {"123456789012345678901234567890e-10", 12345678901234567890.123456789},
        {"1e-400", 0.0},
        {"-1e-400", -0.0},
        {R"("")", ""},
        {R"("\"\\\/\b\f\n\r\t\u0041\u20ac\ud83d\ude00")", "\"\\/\b\f\n\r\tA€😀"},
        {" [ 1 , [ ] , { } ] ", Array{1, Array(), Dictionary()}},
        {R"({"":1,"a\u0062":2})", Dictionary{{"", 1}, {"ab", 2}}},
        {"\xEF\xBB\xBF{}", Dictionary()},
    };
    for (const auto& [text, value] : cases) {
        EXPECT_EQ(read(text), value) << text;
        EXPECT_EQ(read(text).description(), value.description()) << "the sign of 0 as well";
    }
    EXPECT_EQ(read(R"("a\u0000b")").asString(), std::string("a\0b", 3));
}

TEST(JSON, RefusesWhatTheStandardDoesNotKnow) {
    const std::pair<const char*, std::string> cases[] = {
        {"nothing", ""},
        {"blanks only", " \n"},
        {"two texts", "{} {}"},
        {"a comma too many", "[1,]"},
        {"a comma too many", R"({"a":1,})"},
        {"no comma", "[1 2]"},
        {"a key that is no text", "{1:2}"},
        {"no value", R"({"a"})"},
        {"single quotes", "['a']"},
        {"a comment", "[1/*c*/]"},
        {"a leading zero", "[01]"},
        {"a bare point", "[1.]"},
        {"a plus", "[+1]"},
        {"a name", "[NaN]"},
        {"beyond every double", "[1e400]"},
        {"an unknown escape", R"(["\x"])"},
        {"half an escape", R"(["\u12"])"},
        {"a raw control character", "[\"\n\"]"},
        {"a stray continuation byte", "[\"\x80\"]"},
        {"an overlong form", "[\"\xC0\xAF\"]"},
        {"a surrogate as bytes", "[\"\xED\xA0\x80\"]"},
        {"beyond Unicode", "[\"\xF4\x90\x80\x80\"]"},
        {"a sequence cut short", "[\"\xE2\x82\"]"},
        {"a mark of another encoding", "\xFE\xFF[]"},
        {"no end", "[1"},
        {"the wrong end", "[1}"},
    };
    for (const auto& [why, text] : cases) {
        auto result = parseJSON(text);
        ASSERT_TRUE(result.error) << why << ": " << text;
        EXPECT_TRUE(result.error->is(kCocoaErrorDomain, 3840)) << why;
        EXPECT_TRUE(result.value.isNil()) << why;
    }
}

TEST(JSON, RefusesATextCutAnywhere) {
    const std::string text =
        R"({"key":[1.5e3,"\u00e9\ud83d\ude00",true,null,{"a long key, not inline":"a long text, not inline"}]})";
    for (std::size_t cut = 0; cut < text.size(); ++cut)
        EXPECT_TRUE(parseJSON(text.substr(0, cut)).error) << cut;
    EXPECT_FALSE(parseJSON(text).error) << "the reader is whole after so many failures";
}

TEST(JSON, ReadsFragmentsOnlyWhenAsked) {
    for (const char* text : {"1", "\"x\"", "null"}) {
        EXPECT_TRUE(parseJSON(text).error) << text;
        EXPECT_FALSE(parseJSON(text, JSONFragments::Allow).error) << text;
    }
    EXPECT_TRUE(writeJSON(1).error);
    EXPECT_EQ(writeJSON(1, JSONFragments::Allow).text, "1");
}

TEST(JSON, ReplacesHalvesOfSurrogatePairs) {
    const std::pair<const char*, const char*> cases[] = {
        {R"("\ud83d")", "\uFFFD"},
        {R"("\ud83dx")", "\uFFFDx"},
        {R"("\ude00\ud83d")", "\uFFFD\uFFFD"},
        {R"("\ud83d\ud83d\ude00")", "\uFFFD😀"},
        {R"("\ud83d\n")", "\uFFFD\n"},
        {R"("\ud83d\\ude00")", "\uFFFD\\ude00"},
        {R"("\\ud83d \uDE00")", "\\ud83d \uFFFD"},
    };
    for (const auto& [text, expected] : cases) EXPECT_EQ(read(text), expected) << text;
    EXPECT_TRUE(parseJSON(R"(["\ud83d)").error) << "a text broken in another way too";
}

TEST(JSON, LetsTheLastOfRepeatedKeysWinInTheFirstPlace) {
    EXPECT_EQ(written(read(R"({"a":1,"b":2,"a":{"x":3},"c":4,"b":5})")),
              R"({"a":{"x":3},"b":5,"c":4})");
    std::string text = "{";
    for (int i = 0; i < 300; ++i)
        text += (i ? ",\"" : "\"") + std::to_string(i % 100) + "\":" + std::to_string(i);
    const auto many = read(text + "}");
    ASSERT_EQ(many.asDictionary()->size(), 100u);
    int i = 0;
    for (const auto& [key, value] : *many.asDictionary()) {
        EXPECT_EQ(key, std::to_string(i));
        EXPECT_EQ(value, 200 + i++);
    }
}

TEST(JSON, PartsOfAShortTextOutliveTheRest) {
    // The values share one block of memory. Not all of the numbers fit, so some are elsewhere.
    const std::string kLong = "a text too long for a value of its own";
    const std::string text = R"({"one":{"id":")" + kLong + R"("},"one":[")" + kLong +
                             R"(","b"],"numbers":[)" + repeated("1,", 60) + R"(0],"two":{"id":")" +
                             kLong + R"("}})";
    const auto overwriteFreeMemory = [&] {
        read(repeated(" ", text.size() - 60) + "[\"" + repeated("x", 40) + "\",\"y\"]");
    };

    const Value id = read(text).get("two").get("id");
    Value list = read(text).get("one");
    const Value numbers = read(text).get("numbers");
    std::thread([&] {
        overwriteFreeMemory();
        list.mutableArray().append(kLong);
        Value().swap(list);
    }).join();
    // a truncated text releases its memory
    EXPECT_TRUE(parseJSON(text.substr(0, text.size() - 1)).error);
    overwriteFreeMemory();
    EXPECT_EQ(id, Value(kLong));
    EXPECT_EQ(numbers.asArray()->size(), 61U);

    Value owned = read(text).get("one");
    owned.mutableArray().append(1);
    overwriteFreeMemory();
    EXPECT_EQ(written(owned), "[\"" + kLong + "\",\"b\",1]");
}

TEST(JSON, BoundsDepthBothWays) {
    for (const auto& [open, close] : {std::pair("[", "]"), std::pair(R"({"a":)", "}")}) {
        auto text = [&, o = open, c = close](std::size_t depth) {
            return repeated(o, depth - 1) + (*o == '[' ? "[]" : "{}") + repeated(c, depth - 1);
        };
        const auto deepest = parseJSON(text(kJSONMaxDepth));
        ASSERT_FALSE(deepest.error);
        EXPECT_EQ(written(deepest.value), text(kJSONMaxDepth));
        EXPECT_TRUE(writeJSON(Array{deepest.value}).error);
        EXPECT_TRUE(writeJSON(Dictionary{{"a", deepest.value}}).error);
        EXPECT_TRUE(parseJSON(text(kJSONMaxDepth + 1)).error);
        EXPECT_TRUE(parseJSON(repeated(open, 1'000'000)).error);
    }
}

TEST(JSON, WritesWhatItReadsBackAsTheSame) {
    const std::pair<Value, const char*> cases[] = {
        {5, "5"},
        {5.0, "5.0"},
        {-0.0, "-0.0"},
        {1e22, "1e+22"},
        {0.1, "0.1"},
        {100000.0, "1e+05"},
        {"a/\"\\\b\f\n\r\t\x1f\x7fü", "\"a/\\\"\\\\\\b\\f\\n\\r\\t\\u001f\x7fü\""},
        {Dictionary{{"b", Array{true, Value::null()}}, {"a", Dictionary()}},
         R"({"b":[true,null],"a":{}})"},
    };
    for (const auto& [value, text] : cases) {
        EXPECT_EQ(written(value), text);
        EXPECT_EQ(read(text), value);
    }
    const std::string controls(300'000, '\x01');
    EXPECT_EQ(read(written(controls)), controls) << "six times as long when written";
    // Texts are checked and copied eight bytes at a time.
    for (std::size_t length = 0; length <= 18; ++length) {
        for (std::size_t at = 0; at <= length; ++at) {
            for (int byte = 0; byte < 0x80; ++byte) {
                const std::string text =
                    std::string(at, ' ') + static_cast<char>(byte) + std::string(length - at, '!');
                const bool isPlain = byte >= 0x20 && byte != '"' && byte != '\\';
                ASSERT_EQ(read(written(text)), text) << length << " " << at << " " << byte;
                ASSERT_EQ(written(text) == '"' + text + '"', isPlain)
                    << length << " " << at << " " << byte;
            }
        }
    }
    for (unsigned seed = 1; seed <= 200; ++seed) {
        const auto tree = RandomTree(seed).value(4);
        EXPECT_EQ(read(written(tree)), tree) << "seed " << seed;
    }
}

TEST(JSON, RefusesToWriteWhatHasNoForm) {
    const std::pair<const char*, Value> cases[] = {
        {"nil", nullptr},
        {"NaN", std::nan("")},
        {"infinity", -std::numeric_limits<double>::infinity()},
        {"data", Data("x")},
        {"an object", Error::make("d", 1)},
        {"broken UTF-8", "a\xFFz"},
        {"UTF-8 cut short", "a\xE2\x82"},
        {"a stray continuation byte", "plain and long\x80"},
        {"an overlong form", "\xC0\xAF"},
        {"an overlong form of three", "\xE0\x9F\xBF"},
        {"an overlong form of four", "\xF0\x8F\xBF\xBF"},
        {"a surrogate", "\xED\xA0\x80"},
        {"beyond Unicode", "\xF4\x90\x80\x80"},
    };
    for (const auto& [why, value] : cases) {
        EXPECT_TRUE(writeJSON(value, JSONFragments::Allow).error) << why;
        if (value.isNil()) continue;
        auto inside = writeJSON(Dictionary{{"k", Array{value}}});
        ASSERT_TRUE(inside.error) << why;
        EXPECT_TRUE(inside.error->is(kCocoaErrorDomain, 3851)) << why;
        EXPECT_TRUE(inside.text.empty()) << why;
    }
    EXPECT_TRUE(writeJSON(Dictionary{{"\xFF", 1}}).error) << "a key of broken UTF-8";
}
