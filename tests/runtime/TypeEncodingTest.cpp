#include "VexIMLib/Foundation/Runtime/TypeEncoding.h"

#include <gtest/gtest.h>

#include <cstring>
#include <limits>

#include "VexIMLib/Foundation/Exception.h"
#include "VexIMLib/Foundation/Runtime/MethodSignature.h"

namespace vexim {
namespace {

TEST(TypeEncoding, ReadsTheFirstTypeAndKnowsItsSize) {
    constexpr std::size_t kPointer = sizeof(void*);
    const struct {
        const char* why;
        const char* encoding;
        const char* text;
        std::size_t size;
        std::size_t alignment;
    } cases[] = {
        {"64 bits", "q", "q", 8, 8},
        {"what follows is left", "iq", "i", 4, 4},
        {"a boolean", "B@:", "B", 1, 1},
        {"a long double", "D", "D", sizeof(long double), alignof(long double)},
        {"nothing", "v@:", "v", 0, 1},
        {"an object with its class", "@\"NSString\"q", "@\"NSString\"", 16, 8},
        {"a block", "@?q", "@?", 16, 8},
        {"a pointer takes its target's type along", "^{Point=dd}q", "^{Point=dd}", kPointer,
         kPointer},
        {"a qualifier belongs to the type", "r*q", "r*", kPointer, kPointer},
        {"a structure is padded inside and at its end", "{S=cqc}i", "{S=cqc}", 24, 8},
        {"members may be named", "{P=\"x\"d\"y\"d}", "{P=\"x\"d\"y\"d}", 16, 8},
        {"structures nest", "{R={P=dd}{S=ff}}", "{R={P=dd}{S=ff}}", 24, 8},
        {"a structure whose members are not told", "{Opaque}i", "{Opaque}", 0, 1},
        {"a union is as large as its largest member", "(U={P=dd}c)", "(U={P=dd}c)", 16, 8},
        {"an array", "[3s]", "[3s]", 6, 2},
        {"a bit field takes whole bytes", "b9i", "b9", 2, 1},
        {"how a missing type prints is a union's name", "(null)@:", "(null)", 0, 1},
    };
    for (const auto& [why, encoding, text, size, alignment] : cases) {
        SCOPED_TRACE(why);
        const Type type = readType(encoding);
        EXPECT_EQ(type.text, text);
        EXPECT_EQ(type.size, size);
        EXPECT_EQ(type.alignment, alignment);
    }
}

TEST(TypeEncoding, RefusesWhatIsNoType) {
    for (const char* encoding : {"", "z", "r", "^", "{S=q", "{S=z}", "(U=i", "[3", "[3i",
                                 "@\"NSString", "[99999999i]", "\xC3\xA9"}) {
        EXPECT_THROW(readType(encoding), Exception) << encoding;
    }
}

/// The number as a scalar of the type, taken out again.
std::string throughType(const Value& number, const char* type) {
    alignas(16) unsigned char bytes[16];
    std::memset(bytes, 0xA5, sizeof bytes);
    if (!unboxScalar(number, type, bytes)) return "refused";
    for (std::size_t i = readType(type).size; i < sizeof bytes; ++i)
        EXPECT_EQ(bytes[i], 0xA5) << type << " writes too much";
    return boxScalar(type, bytes).description();
}

TEST(TypeEncoding, UnboxesNumbersAsADeclaredScalar) {
    const struct {
        const char* why;
        Value number;
        const char* type;
        const char* result;
    } cases[] = {
        {"char wraps", 300, "c", "44"},
        {"and has a sign", -1, "c", "-1"},
        {"unsigned char wraps", -1, "C", "255"},
        {"short wraps", 40000, "s", "-25536"},
        {"unsigned short wraps", 65537, "S", "1"},
        {"int wraps", std::int64_t{1} << 32, "i", "0"},
        {"unsigned int wraps", -1, "I", "4294967295"},
        {"long keeps what the machine's has room for", std::numeric_limits<std::int64_t>::min(),
         "l", sizeof(long) == 8 ? "-9223372036854775808" : "0"},
        {"unsigned long wraps", -1, "L", sizeof(long) == 8 ? "18446744073709551615" : "4294967295"},
        {"no 64-bit integer passes through a double", 9007199254740993, "q", "9007199254740993"},
        {"above the signed range", std::numeric_limits<std::uint64_t>::max(), "Q",
         "18446744073709551615"},
        {"a real is truncated", -2.9, "q", "-2"},
        {"a real above the signed range", 1e19, "Q", "10000000000000000000"},
        {"a real saturates", 1e300, "q", "9223372036854775807"},
        {"not a number is 0", std::numeric_limits<double>::quiet_NaN(), "q", "0"},
        {"a boolean is a number", true, "i", "1"},
        {"anything but 0 is true", -7, "B", "1"},
        {"a fraction is true", 0.25, "B", "1"},
        {"a float rounds", 0.5, "f", "0.5"},
        {"an integer becomes a double", 5, "d", "5"},
        {"a long double is widened from a double", 0.5, "D", "0.5"},
        {"text is not converted", "5", "i", "refused"},
        {"nor is nil", nullptr, "i", "refused"},
        {"a structure is no scalar", 5, "{S=i}", "refused"},
        {"an object is no scalar", 5, "@", "refused"},
        {"nothing is no scalar", 5, "v", "refused"},
    };
    for (const auto& [why, number, type, result] : cases)
        EXPECT_EQ(throughType(number, type), result) << why;
    const unsigned char two = 2;
    EXPECT_EQ(boxScalar("B", &two), true) << "whatever is not 0";
}

TEST(MethodSignature, ReadsResultAndArguments) {
    const auto setter = MethodSignature::signatureWithObjCTypes("v@:@\"NSString\"");
    EXPECT_EQ(setter->numberOfArguments(), 3u);
    EXPECT_EQ(setter->methodReturnLength(), 0u);
    EXPECT_EQ(setter->argumentType(2), "@\"NSString\"");
    EXPECT_THROW(setter->argumentType(3), Exception);

    const auto withOffsets = MethodSignature::signatureWithObjCTypes("{P=dd}24@0:8[2i]16q-8");
    EXPECT_EQ(withOffsets->methodReturnType(), "{P=dd}");
    EXPECT_EQ(withOffsets->methodReturnLength(), 16u);
    EXPECT_EQ(withOffsets->argumentType(2), "[2i]");
    EXPECT_EQ(withOffsets->argumentType(3), "q");

    EXPECT_TRUE(*MethodSignature::signatureWithObjCTypes("q16@0:8") ==
                *MethodSignature::signatureWithObjCTypes("q@:"));
    EXPECT_FALSE(*MethodSignature::signatureWithObjCTypes("q@:") ==
                 *MethodSignature::signatureWithObjCTypes("q@:q"));
    EXPECT_FALSE(*MethodSignature::signatureWithObjCTypes("q@:") ==
                 *MethodSignature::signatureWithObjCTypes("v@:"));
    for (const char* types : {"", "v@:z", "16"})
        EXPECT_THROW(MethodSignature::signatureWithObjCTypes(types), Exception) << types;
}

}  // namespace
}  // namespace vexim
