#include "VexIMLib/Testing/internal/Paths.h"

#include <algorithm>

#include "VexIMLib/Foundation/URL.h"

namespace vexim::testing::fake {

namespace {

/// Removes the part before `separator` from `text`, with the separator, and returns it.
std::string_view take(std::string_view& text, char separator) {
    const auto end = std::min(text.find(separator), text.size());
    const auto part = text.substr(0, end);
    text.remove_prefix(std::min(end + 1, text.size()));
    return part;
}

std::string decodedField(std::string_view text) {
    std::string plain(text);
    std::ranges::replace(plain, '+', ' ');
    return percentDecode(plain);
}

}  // namespace

std::optional<Parameters> match(std::string_view pattern, std::string_view path) {
    Parameters parameters;
    if (std::ranges::count(pattern, '/') != std::ranges::count(path, '/')) return std::nullopt;
    while (!pattern.empty() || !path.empty()) {
        const auto wanted = take(pattern, '/');
        const auto part = take(path, '/');
        if (wanted.starts_with(':') && !part.empty()) {
            parameters.push_back(percentDecode(part));
        } else if (wanted != part) {
            return std::nullopt;
        }
    }
    return parameters;
}

Query::Query(std::string_view text) {
    while (!text.empty()) {
        auto field = take(text, '&');
        const auto name = take(field, '=');
        if (!name.empty()) fields_.emplace_back(decodedField(name), decodedField(field));
    }
}

bool Query::has(std::string_view name) const {
    return std::ranges::any_of(fields_, [&](const auto& field) { return field.first == name; });
}

std::string Query::get(std::string_view name) const {
    const auto found =
        std::ranges::find_if(fields_, [&](const auto& field) { return field.first == name; });
    return found == fields_.end() ? "" : found->second;
}

}  // namespace vexim::testing::fake
