#include "LocalTime.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <ctime>
#include <stdexcept>

std::string localTime(std::int64_t millis) {
    const auto time = static_cast<std::time_t>(millis / 1000);
    std::tm parts{};
    ::localtime_r(&time, &parts);
    std::array<char, 32> text{};
    std::strftime(text.data(), text.size(), "%Y-%m-%d %H:%M", &parts);
    return text.data();
}

std::optional<std::int64_t> timeOf(const char* option, const std::string& word) {
    if (word.empty()) return std::nullopt;
    if (std::all_of(word.begin(), word.end(),
                    [](unsigned char c) { return std::isdigit(c) != 0; }) &&
        word.size() <= 12) {
        return std::stoll(word) * 1000;
    }
    for (const char* const format : {"%Y-%m-%dT%H:%M", "%Y-%m-%d %H:%M", "%Y-%m-%d"}) {
        std::tm parts{};
        parts.tm_isdst = -1;
        const char* const end = ::strptime(word.c_str(), format, &parts);
        if (end != nullptr && *end == '\0')
            return static_cast<std::int64_t>(std::mktime(&parts)) * 1000;
    }
    throw std::invalid_argument(
        std::string(option) +
        " takes a day such as 2026-11-22, a time such as 2026-11-22T09:30, or " +
        "seconds since 1970, not \"" + word + "\"");
}
