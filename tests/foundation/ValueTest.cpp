#include "VexIMLib/Foundation/Value.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <memory>
#include <string>

#include "VexIMLib/Foundation/Error.h"
#include "VexIMLib/Foundation/Exception.h"
#include "VexIMLib/Foundation/Scalars.h"
#include "support/Race.h"

using namespace vexim;
using Kind = Value::Kind;

namespace {

constexpr auto kMaxSigned = std::numeric_limits<std::int64_t>::max();
constexpr auto kMinSigned = std::numeric_limits<std::int64_t>::min();
constexpr auto kMaxUnsigned = std::numeric_limits<std::uint64_t>::max();

/// An object that records its destruction.
class Witness final : public Object {
public:
    using Object::Object;
    ~Witness() override {
        if (atEnd) atEnd();
    }
    bool initialise() { return true; }
    std::string description() const override { return "<Witness>"; }
    std::function<void()> atEnd;
};

Value nested(std::size_t depth, Value inner = Array()) {
    for (std::size_t i = 0; i < depth; ++i)
        inner = i % 2 ? Value(Dictionary{{"k", std::move(inner)}}) : Value(Array{std::move(inner)});
    return inner;
}

}  // namespace

TEST(Value, TellsKindsApart) {
    const std::pair<Value, Kind> cases[] = {
        {Value(), Kind::Nil},
        {nullptr, Kind::Nil},
        {static_cast<const char*>(nullptr), Kind::Nil},
        {std::optional<std::string>(), Kind::Nil},
        {std::shared_ptr<Error>(), Kind::Nil},
        {Value::null(), Kind::Null},
        {true, Kind::Boolean},
        {1, Kind::Integer},
        {5u, Kind::Integer},
        {kMaxUnsigned >> 1, Kind::Integer},
        {(kMaxUnsigned >> 1) + 1, Kind::Unsigned},
        {5.0, Kind::Real},
        {"", Kind::String},
        {Data(), Kind::Data},
        {Array(), Kind::Array},
        {Dictionary(), Kind::Dictionary},
        {create<Witness>(), Kind::Object},
    };
    for (std::size_t i = 0; i < std::size(cases); ++i) {
        EXPECT_EQ(cases[i].first.kind(), cases[i].second) << "case " << i;
        for (std::size_t j = 0; j < std::size(cases); ++j) {
            if (cases[i].second != cases[j].second) {
                EXPECT_NE(cases[i].first, cases[j].first) << i << " and " << j;
            }
        }
    }
    EXPECT_EQ(Value(kMinSigned).integer(), kMinSigned);
    EXPECT_EQ(Value(kMaxUnsigned).unsignedInteger(), kMaxUnsigned);
    EXPECT_EQ(Value(0.1).real(), 0.1);
}

TEST(Value, KeepsTextOfEveryLengthThroughCopiesAndMoves) {
    for (std::size_t length : {0u, 1u, 13u, 14u, 15u, 16u, 100u, 70'000u}) {
        SCOPED_TRACE(length);
        std::string text(length, 'x');
        if (length > 0) text[length / 2] = '\0';
        Value original(text);
        Value copy = original;
        Value moved = std::move(original);
        EXPECT_EQ(copy.asString(), text);
        EXPECT_EQ(moved, copy);
        copy = copy.get("nothing");
        EXPECT_TRUE(copy.isNil());
        EXPECT_EQ(moved.asString(), text);
    }
}

TEST(Value, SurvivesAssignmentFromItsOwnInside) {
    Value value = Array{Dictionary{{"deep", Array{"a text that does not lie inline"}}}};
    value = value.get(std::size_t{0});
    value = value.get("deep");
    value = *&value;
    value = value.get(std::size_t{0});
    EXPECT_EQ(value, "a text that does not lie inline");
}

TEST(Value, DestroysAndComparesWhatNestsDeepWithoutRecursion) {
    auto deep = nested(300'000);
    auto same = nested(300'000);
    EXPECT_TRUE(deep == same);
    auto other = nested(300'000, 1);
    EXPECT_FALSE(deep == other);
    EXPECT_LT(deep.description().size(), 10'000u);
}

TEST(Value, ReleasesObjectsAtOnceAlsoInsideADestructor) {
    int gone = 0;
    auto outer = create<Witness>();
    outer->atEnd = [&] {
        auto inner = create<Witness>();
        inner->atEnd = [&] { ++gone; };
        { Array holder{Value(Array{Value(std::move(inner))})}; }
        EXPECT_EQ(gone, 1);
    };
    Value holder = Array{Value(Array{Value(std::move(outer))})};
    holder = nullptr;
    EXPECT_EQ(gone, 1);
}

TEST(Value, CountsItsOwnersWhileThreadsContend) {
    Value held = create<Witness>();
    const std::weak_ptr<Object> watch = held.asObject();
    const auto copy = [&](int) {
        for (int i = 0; i < 500; ++i) const Value copies[] = {held, held};
    };
    vexim::testing::race(20, copy, copy);
    EXPECT_FALSE(watch.expired());
    held = nullptr;
    EXPECT_TRUE(watch.expired());
}

TEST(Value, ComparesObjectsByTheirOwnEquality) {
    auto witness = create<Witness>();
    EXPECT_EQ(Value(witness), Value(witness));
    EXPECT_NE(Value(witness), Value(create<Witness>()));
    EXPECT_EQ(Value(Error::make("d", 1, "x")), Value(Error::make("d", 1, "x")));
    EXPECT_NE(Value(Error::make("d", 1, "x")), Value(Error::make("d", 1, "y")));
    EXPECT_EQ(Value(witness).as<Witness>(), witness);
    EXPECT_EQ(Value(witness).as<Error>(), nullptr);
}

TEST(Value, EqualsItsCopyEvenWithNaN) {
    const Array numbers{std::nan(""), 1};
    EXPECT_EQ(numbers, Array({std::nan(""), 1}));
}

TEST(Value, HandsOutOnlyContainersOfItsKind) {
    Value text("x");
    EXPECT_THROW(text.mutableArray(), Exception);
    EXPECT_THROW(text.mutableDictionary(), Exception);
    EXPECT_TRUE(text.get("key").isNil());
    EXPECT_TRUE(Value(Array{1}).get(std::size_t{1}).isNil());
}

TEST(Value, PrintsAsThePlatformDoes) {
    const std::pair<Value, const char*> cases[] = {
        {nullptr, "(null)"},
        {Value::null(), "<null>"},
        {true, "1"},
        {false, "0"},
        {-5, "-5"},
        {kMaxUnsigned, "18446744073709551615"},
        {5.0, "5"},
        {0.1, "0.1"},
        {1e20, "1e+20"},
        {"text", "text"},
        {Data("hello"), "{length = 5, bytes = 0x68656c6c6f}"},
        {Array(), "[]"},
        {Dictionary(), "{}"},
        {Dictionary{{"b", Array{1, Value::null(), "x"}},
                    {"a", Dictionary{{"k", create<Witness>()}}}},
         "{b = [1, <null>, x]; a = {k = <Witness>}}"},
    };
    for (const auto& [value, text] : cases) EXPECT_EQ(value.description(), text);
}

TEST(Value, ComparesIdsSoThatNilEqualsNothing) {
    EXPECT_TRUE(idsEqual(Value("u1"), Value("u1")));
    EXPECT_FALSE(idsEqual(Value("u1"), Value("u2")));
    EXPECT_FALSE(idsEqual(Value(), Value()));
    EXPECT_FALSE(idsEqual(Value(1), Value("1")));
    EXPECT_FALSE(idsEqual(std::optional<std::string>(), std::optional<std::string>()));
    EXPECT_TRUE(idsEqual(std::optional<std::string>("u"), std::optional<std::string>("u")));
}

TEST(Scalars, ReadsLenientlyWhatTheWireBrings) {
    struct Case {
        const char* why;
        Value value;
        bool asBool;
        std::int64_t asInt64;
        std::uint64_t asUInt64;
        double asDouble;
    } const cases[] = {
        {"nil", nullptr, false, 0, 0, 0},
        {"null", Value::null(), false, 0, 0, 0},
        {"true", true, true, 1, 1, 1},
        {"a negative wraps into unsigned", -1, true, -1, kMaxUnsigned, -1},
        {"an unsigned wraps into signed", kMaxUnsigned, true, -1, kMaxUnsigned,
         18446744073709551615.0},
        {"beyond a double's exactness", 9007199254740993, true, 9007199254740993, 9007199254740993,
         9007199254740992.0},
        {"a real truncates toward zero", -2.9, true, -2, 0, -2.9},
        {"a small real is not 0", 0.1, true, 0, 0, 0.1},
        {"a real saturates above", 1e300, true, kMaxSigned, kMaxUnsigned, 1e300},
        {"a real saturates below", -1e300, true, kMinSigned, 0, -1e300},
        {"two to the 63rd, as real", 9223372036854775808.0, true, kMaxSigned, 9223372036854775808u,
         9223372036854775808.0},
        {"text of an integer", "42", true, 42, 42, 42},
        {"text of a large integer, exact", "9007199254740993", true, 9007199254740993,
         9007199254740993, 9007199254740992.0},
        {"text of an unsigned", "18446744073709551615", true, -1, kMaxUnsigned,
         18446744073709551615.0},
        {"text of a real", "-1.5e1", true, -15, 0, -15},
        {"blanks and a plus", " +7\n", true, 7, 7, 7},
        {"text of zero", "0", false, 0, 0, 0},
        {"empty text", "", false, 0, 0, 0},
        {"a number with a tail", "12abc", false, 0, 0, 0},
        {"hexadecimal", "0x10", false, 0, 0, 0},
        {"a name of a number", "nan", false, 0, 0, 0},
        {"two signs", "+-5", false, 0, 0, 0},
        {"a word", "true", false, 0, 0, 0},
        {"an array", Array{1}, false, 0, 0, 0},
        {"a dictionary", Dictionary{{"a", 1}}, false, 0, 0, 0},
        {"data", Data("1"), false, 0, 0, 0},
    };
    for (const auto& each : cases) {
        SCOPED_TRACE(each.why);
        EXPECT_EQ(lenientBool(each.value), each.asBool);
        EXPECT_EQ(lenientInt64(each.value), each.asInt64);
        EXPECT_EQ(lenientUInt64(each.value), each.asUInt64);
        EXPECT_EQ(lenientDouble(each.value), each.asDouble);
        // Strict agrees on numbers and refuses everything else.
        const bool isNumber = each.value.isNumber();
        EXPECT_EQ(strictBool(each.value), isNumber ? std::optional(each.asBool) : std::nullopt);
        EXPECT_EQ(strictInt64(each.value), isNumber ? std::optional(each.asInt64) : std::nullopt);
        EXPECT_EQ(strictUInt64(each.value), isNumber ? std::optional(each.asUInt64) : std::nullopt);
        EXPECT_EQ(strictDouble(each.value), isNumber ? std::optional(each.asDouble) : std::nullopt);
    }
    EXPECT_EQ(lenientInt64(std::nan("")), 0);
    EXPECT_FALSE(lenientBool(std::nan("")));
    EXPECT_EQ(Value(std::int64_t{1} << 32 | 7).intValue(), 7) << "narrow integers wrap";
}
