#pragma once

#include <cstdint>
#include <optional>
#include <string>

/// What an option that takes a time says of it.
inline constexpr const char* kTimeHelp =
    "Before this time: 2026-11-22, 2026-11-22T09:30, or seconds since 1970";

/// "2026-11-22 09:30", in the local time zone.
std::string localTime(std::int64_t millis);

/// A day ("2026-11-22"), a minute of it ("2026-11-22T09:30"), both local time, or seconds since
/// 1970. In milliseconds; nullopt for an empty word. Throws std::invalid_argument, which names
/// `option`.
std::optional<std::int64_t> timeOf(const char* option, const std::string& word);
