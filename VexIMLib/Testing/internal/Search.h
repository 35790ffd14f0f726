#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "VexIMLib/Foundation/Array.h"
#include "VexIMLib/Testing/internal/Paths.h"
#include "VexIMLib/Testing/internal/Store.h"

// ?name=value&_sort=name,-other&_limit&_skip: a search of users, groups or rooms. Each condition
// requires that an attribute (or "id", "ts", "name", "owner") prints as the given text.

namespace vexim::testing::fake {

/// The whole number in a query's field; nullopt if it is missing or empty. Throws if it is not a
/// number.
std::optional<std::uint64_t> count(const Query& query, std::string_view name);

/// The value for conditions and sorting: an attribute, or else a field of the record.
Value field(const Record& record, std::string_view name);
Value field(const Place& place, std::string_view name);

bool printsAs(const Value& value, const std::string& text);
/// Below zero if `a` comes first. Numbers come before texts, and texts before anything else, which
/// has no order. `direction` reverses only the order within a kind.
int compare(const Value& a, const Value& b, int direction);

/// What a search asks for.
struct Search {
    explicit Search(const Query& query);

    std::vector<std::pair<std::string, std::string>> conditions;
    std::vector<std::pair<std::string, int>> order;  // keys and directions
    std::size_t limit;
    std::size_t skip;
};

/// The records that match the query, sorted and paged, in the form of `view`.
template <class T, class View>
Array search(Table<T>& records, const Query& query, View view) {
    const Search wanted(query);
    std::vector<const T*> found;
    for (const T& record : records) {
        const bool fits = std::ranges::all_of(wanted.conditions, [&](const auto& condition) {
            return printsAs(field(record, condition.first), condition.second);
        });
        if (fits) found.push_back(&record);
    }
    std::ranges::stable_sort(found, [&](const T* a, const T* b) {
        for (const auto& [name, direction] : wanted.order) {
            if (const int order = compare(field(*a, name), field(*b, name), direction); order != 0)
                return order < 0;
        }
        return false;
    });
    Array page;
    for (std::size_t i = wanted.skip; i < found.size() && page.size() < wanted.limit; ++i)
        page.append(view(*found[i]));
    return page;
}

}  // namespace vexim::testing::fake
