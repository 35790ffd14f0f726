// number := [sign] digits [fraction] [exponent] | [sign] fraction [exponent]
//   digits   := '0'..'9'+ | one to three digits, then groups of ',' and three
//   fraction := '.' '0'..'9'*
//   exponent := 'E' [sign] '0'..'9'+
// Example: -1,234.5

#include "VexIMLib/internal/Platform/Facts/NumberFormatter.h"

#include <charconv>
#include <string>

#include "VexIMLib/internal/Foundation/Text/ASCII.h"
#include "VexIMLib/internal/Foundation/Text/Real.h"

namespace vexim {
namespace {

/// Moves the leading digits of `text` to the end of `digits`.
std::size_t takeDigits(std::string_view& text, std::string& digits) {
    std::size_t count = 0;
    while (count < text.size() && detail::isDigit(text[count])) ++count;
    digits.append(text.substr(0, count));
    text.remove_prefix(count);
    return count;
}

bool takeSign(std::string_view& text, std::string& digits) {
    if (text.empty() || (text[0] != '-' && text[0] != '+')) return false;
    if (text[0] == '-') digits.push_back('-');
    text.remove_prefix(1);
    return true;
}

}  // namespace

Value numberFromString(std::string_view text) {
    text = detail::trimmed(text);
    std::string plain;  // the form for from_chars: no grouping, no '+'
    takeSign(text, plain);
    std::size_t whole = takeDigits(text, plain);
    if (whole > 0 && whole <= 3) {
        while (text.size() >= 4 && text[0] == ',') {
            std::string_view group = text.substr(1);
            if (takeDigits(group, plain) != 3) return nullptr;
            text = group;
            whole += 3;
        }
    }
    bool isInteger = true;
    if (!text.empty() && text[0] == '.') {
        text.remove_prefix(1);
        if (whole == 0) plain.push_back('0');
        plain.push_back('.');
        const std::size_t decimals = takeDigits(text, plain);
        if (whole + decimals == 0) return nullptr;
        if (decimals == 0) plain.push_back('0');
        isInteger = false;
        whole += decimals;
    }
    if (whole == 0) return nullptr;
    if (text.size() >= 2 && (text[0] == 'E' || text[0] == 'e')) {
        text.remove_prefix(1);
        plain.push_back('e');
        takeSign(text, plain);
        if (takeDigits(text, plain) == 0) return nullptr;
        isInteger = false;
    }
    if (!text.empty()) return nullptr;

    const char* const end = plain.data() + plain.size();
    if (isInteger) {
        std::int64_t number = 0;
        if (std::from_chars(plain.data(), end, number).ec == std::errc{}) return number;
    }
    double number = 0;
    if (readReal(plain.data(), end, number).ec != std::errc{}) return nullptr;
    return number;
}

}  // namespace vexim
