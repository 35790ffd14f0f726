#include "VexIMLib/internal/Platform/Loading/HTTPHeaderFields.h"

#include <algorithm>
#include <charconv>
#include <system_error>

#include "VexIMLib/internal/Foundation/Text/ASCII.h"

namespace vexim {

bool sameHeaderName(std::string_view a, std::string_view b) noexcept {
    return detail::equalsIgnoringCase(a, b);
}

bool isHeaderName(std::string_view name) noexcept {
    constexpr std::string_view kMarks = "!#$%&'*+.^_`|~";
    return !name.empty() && std::all_of(name.begin(), name.end(), [&](char c) {
        return detail::isLetter(c) || c == '-' || detail::isDigit(c) ||
               kMarks.find(c) != std::string_view::npos;
    });
}

bool isHeaderValue(std::string_view value) noexcept {
    return std::none_of(value.begin(), value.end(),
                        [](char c) { return c == '\r' || c == '\n' || c == '\0'; });
}

HTTPHeaderFields::HTTPHeaderFields(std::initializer_list<Field> fields) {
    for (const auto& [name, value] : fields) set(name, value);
}

void HTTPHeaderFields::set(std::string name, std::string value) {
    const auto sameName = [&](const Field& field) { return sameHeaderName(field.first, name); };
    const auto first = std::find_if(fields_.begin(), fields_.end(), sameName);
    if (first == fields_.end()) return add(std::move(name), std::move(value));
    fields_.erase(std::remove_if(first + 1, fields_.end(), sameName), fields_.end());
    *first = {std::move(name), std::move(value)};
}

void HTTPHeaderFields::add(std::string name, std::string value) {
    fields_.emplace_back(std::move(name), std::move(value));
}

void HTTPHeaderFields::remove(std::string_view name) {
    std::erase_if(fields_, [&](const Field& field) { return sameHeaderName(field.first, name); });
}

const std::string* HTTPHeaderFields::find(std::string_view name) const noexcept {
    for (const auto& [key, value] : fields_) {
        if (sameHeaderName(key, name)) return &value;
    }
    return nullptr;
}

std::optional<std::string> HTTPHeaderFields::value(std::string_view name) const {
    std::optional<std::string> joined;
    for (const auto& [key, value] : fields_) {
        if (!sameHeaderName(key, name)) continue;
        if (joined) {
            joined->append(", ").append(value);
        } else {
            joined = value;
        }
    }
    return joined;
}

std::optional<std::int64_t> parseContentLength(std::string_view text) {
    std::int64_t length = 0;
    const auto [end, failure] = std::from_chars(text.data(), text.data() + text.size(), length);
    if (failure != std::errc{} || end != text.data() + text.size() || text.empty() ||
        text[0] == '-')
        return std::nullopt;
    return length;
}

std::optional<std::int64_t> statedContentLength(const HTTPHeaderFields& headers) {
    if (!headers.contains("Content-Length") || headers.contains("Transfer-Encoding")) return -1;
    std::optional<std::int64_t> stated;
    const std::string joined = *headers.value("Content-Length");
    for (std::string_view rest = joined;;) {
        const auto comma = std::min(rest.find(','), rest.size());
        const auto length = parseContentLength(detail::trimmed(rest.substr(0, comma)));
        if (!length || (stated && *stated != *length)) return std::nullopt;
        stated = length;
        if (comma == rest.size()) return stated;
        rest.remove_prefix(comma + 1);
    }
}

}  // namespace vexim
