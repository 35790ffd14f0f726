#include "VexIMLib/Testing/internal/Search.h"

#include <charconv>

#include "VexIMLib/Foundation/JSON.h"

namespace vexim::testing::fake {

namespace {
constexpr std::size_t kPage = 20;           // results, if the query does not say
constexpr std::size_t kLongestPage = 1000;  // results, whatever the query says
}  // namespace

std::optional<std::uint64_t> count(const Query& query, std::string_view name) {
    const std::string text = query.get(name);
    if (text.empty()) return std::nullopt;
    std::uint64_t value = 0;  // also a time in milliseconds
    const auto [stop, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    must(error == std::errc{} && stop == text.data() + text.size(), errors::invalidValue,
         named(sentences::notCount, name));
    return value;
}

Value field(const Record& record, std::string_view name) {
    if (const Value* const attribute = record.attributes.find(name)) return *attribute;
    if (name == "id") return record.id;
    if (name == "ts") return record.created;
    return nullptr;
}

Value field(const Place& place, std::string_view name) {
    if (Value value = field(static_cast<const Record&>(place), name); !value.isNil()) return value;
    if (name == "name" && !place.name.empty()) return place.name;
    if (name == "owner" && !place.owner.empty()) return place.owner;
    return nullptr;
}

bool printsAs(const Value& value, const std::string& text) {
    if (value.isNil() || value.isArray() || value.isDictionary()) return false;
    return value.isString() ? value.asStringView() == text
                            : writeJSON(value, JSONFragments::Allow).text == text;
}

int compare(const Value& a, const Value& b, int direction) {
    const auto kind = [](const Value& value) {
        return value.isNumber() && !value.isBoolean() ? 0 : value.isString() ? 1 : 2;
    };
    if (kind(a) != kind(b) || kind(a) == 2) return kind(a) - kind(b);
    if (kind(a) == 0)
        return a.doubleValue() < b.doubleValue()   ? -direction
               : a.doubleValue() > b.doubleValue() ? direction
                                                   : 0;
    const int order = a.asStringView()->compare(*b.asStringView());
    return order < 0 ? -direction : order > 0 ? direction : 0;
}

Search::Search(const Query& query)
    : limit(static_cast<std::size_t>(
          std::min<std::uint64_t>(count(query, "_limit").value_or(kPage), kLongestPage))),
      skip(static_cast<std::size_t>(
          std::min<std::uint64_t>(count(query, "_skip").value_or(0), std::size_t(-1)))) {
    for (const auto& [name, value] : query) {
        if (!name.starts_with('_')) conditions.emplace_back(name, value);
    }
    std::string keys = query.get("_sort");
    while (!keys.empty()) {
        const auto comma = std::min(keys.find(','), keys.size());
        const std::string key = keys.substr(0, comma);
        keys.erase(0, comma + 1);
        key.starts_with('-') ? order.emplace_back(key.substr(1), -1) : order.emplace_back(key, 1);
    }
}

}  // namespace vexim::testing::fake
