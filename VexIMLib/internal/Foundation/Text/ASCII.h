#pragma once

#include <algorithm>
#include <string>
#include <string_view>

// ASCII letters, digits and blanks, independent of the process's locale.
namespace vexim::detail {

constexpr bool isDigit(char c) noexcept { return c >= '0' && c <= '9'; }
constexpr char lowerCase(char c) noexcept {
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}
constexpr bool isLetter(char c) noexcept { return lowerCase(c) >= 'a' && lowerCase(c) <= 'z'; }
/// The value of a hexadecimal digit; -1 for other characters.
constexpr int hexDigit(char c) noexcept {
    if (isDigit(c)) return c - '0';
    return lowerCase(c) >= 'a' && lowerCase(c) <= 'f' ? lowerCase(c) - 'a' + 10 : -1;
}

inline std::string lowerCase(std::string_view text) {
    std::string lower(text);
    for (char& c : lower) c = lowerCase(c);
    return lower;
}

inline bool equalsIgnoringCase(std::string_view a, std::string_view b) noexcept {
    return std::equal(a.begin(), a.end(), b.begin(), b.end(),
                      [](char x, char y) { return lowerCase(x) == lowerCase(y); });
}

/// The text without blanks and line ends at either end.
constexpr std::string_view trimmed(std::string_view text) noexcept {
    constexpr auto isBlank = [](char c) { return c == ' ' || c == '\t' || c == '\r' || c == '\n'; };
    while (!text.empty() && isBlank(text.front())) text.remove_prefix(1);
    while (!text.empty() && isBlank(text.back())) text.remove_suffix(1);
    return text;
}

}  // namespace vexim::detail
