#include "VexIMLib/Foundation/Scalars.h"

#include <charconv>
#include <limits>
#include <type_traits>

#include "VexIMLib/internal/Foundation/Text/Real.h"

namespace vexim {

namespace {

constexpr double kTwoTo63 = 9223372036854775808.0;
constexpr double kTwoTo64 = 18446744073709551616.0;

std::uint64_t truncateToUInt64(double value) noexcept {
    if (!(value > 0)) return 0;  // NaN too
    if (value >= kTwoTo64) return std::numeric_limits<std::uint64_t>::max();
    return static_cast<std::uint64_t>(value);
}

bool isBlank(char c) noexcept { return c == ' ' || (c >= '\t' && c <= '\r'); }

bool readWhole(std::string_view text, auto& number) noexcept {
    const char* const end = text.data() + text.size();
    std::from_chars_result result{};
    if constexpr (std::is_same_v<decltype(number), double&>) {
        result = readReal(text.data(), end, number);
    } else {
        result = std::from_chars(text.data(), end, number);
    }
    return result.ec == std::errc() && result.ptr == end;
}

// The number in a text, ignoring blanks around it; nil if it is not a number. Infinity and NaN do
// not count.
Value numberOf(std::string_view text) noexcept {
    while (!text.empty() && isBlank(text.front())) text.remove_prefix(1);
    while (!text.empty() && isBlank(text.back())) text.remove_suffix(1);
    if (text.size() > 1 && text.front() == '+' && text[1] != '-') text.remove_prefix(1);
    if (text.find_first_not_of("0123456789+-.eE") != std::string_view::npos) return {};
    std::int64_t integer = 0;
    if (readWhole(text, integer)) return integer;
    std::uint64_t large = 0;
    if (readWhole(text, large)) return large;
    double real = 0;
    if (readWhole(text, real)) return real;
    return {};
}

/// Applies `convert` to the number in `value` (a boolean is 1 or 0); nullopt if there is none.
template <class Result, class Convert>
std::optional<Result> convertNumber(const Value& value, Convert convert) noexcept {
    switch (value.kind()) {
        case Value::Kind::Boolean: return convert(std::int64_t{value.boolean()});
        case Value::Kind::Integer: return convert(value.integer());
        case Value::Kind::Unsigned: return convert(value.unsignedInteger());
        case Value::Kind::Real: return convert(value.real());
        case Value::Kind::Nil:
        case Value::Kind::Null:
        case Value::Kind::String:
        case Value::Kind::Data:
        case Value::Kind::Array:
        case Value::Kind::Dictionary:
        case Value::Kind::Object: break;
    }
    return std::nullopt;
}

Value lenientNumber(const Value& value) noexcept {
    if (value.isNumber()) return value;
    if (auto text = value.asStringView()) return numberOf(*text);
    return {};
}

}  // namespace

std::int64_t truncateToInt64(double value) noexcept {
    if (value >= kTwoTo63) return std::numeric_limits<std::int64_t>::max();
    if (value < -kTwoTo63) return std::numeric_limits<std::int64_t>::min();
    if (value != value) return 0;
    return static_cast<std::int64_t>(value);
}

std::optional<bool> strictBool(const Value& value) noexcept {
    // a large integer loses digits in a double but never becomes 0
    const auto number = strictDouble(value);
    if (!number) return std::nullopt;
    return *number < 0 || *number > 0;  // and so NaN is false
}

std::optional<std::int64_t> strictInt64(const Value& value) noexcept {
    return convertNumber<std::int64_t>(value, [](auto number) {
        if constexpr (std::is_same_v<decltype(number), double>)
            return truncateToInt64(number);
        else
            return static_cast<std::int64_t>(number);
    });
}

std::optional<std::uint64_t> strictUInt64(const Value& value) noexcept {
    return convertNumber<std::uint64_t>(value, [](auto number) {
        if constexpr (std::is_same_v<decltype(number), double>)
            return truncateToUInt64(number);
        else
            return static_cast<std::uint64_t>(number);
    });
}

std::optional<double> strictDouble(const Value& value) noexcept {
    return convertNumber<double>(value, [](auto number) { return static_cast<double>(number); });
}

bool lenientBool(const Value& value) noexcept {
    return strictBool(lenientNumber(value)).value_or(false);
}
std::int64_t lenientInt64(const Value& value) noexcept {
    return strictInt64(lenientNumber(value)).value_or(0);
}
std::uint64_t lenientUInt64(const Value& value) noexcept {
    return strictUInt64(lenientNumber(value)).value_or(0);
}
double lenientDouble(const Value& value) noexcept {
    return strictDouble(lenientNumber(value)).value_or(0);
}

}  // namespace vexim
