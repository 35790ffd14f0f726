#pragma once

#include <cstdint>
#include <optional>
#include <string>

/// The help text of options that take a time.
inline constexpr const char* kTimeHelp =
    "Before this time: 2026-11-22, 2026-11-22T09:30, or seconds since 1970";

/// "2026-11-22 09:30", in the local time zone.
std::string localTime(std::int64_t millis);

/// Reads a time: a day ("2026-11-22") or a minute ("2026-11-22T09:30"), both in local time, or
/// seconds since 1970. Returns milliseconds; nullopt for an empty word. Throws
/// std::invalid_argument, with `option` in its text.
std::optional<std::int64_t> timeOf(const char* option, const std::string& word);
