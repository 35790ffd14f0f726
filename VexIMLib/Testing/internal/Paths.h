#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace vexim::testing::fake {

using Parameters = std::vector<std::string>;

/// The parts of `path` where `pattern` has ":name", percent-decoded; nullopt if it does not match.
std::optional<Parameters> match(std::string_view pattern, std::string_view path);

/// The fields of a query, decoded, in order.
class Query {
public:
    explicit Query(std::string_view text);

    bool has(std::string_view name) const;
    /// The first field of this name; empty if there is none.
    std::string get(std::string_view name) const;
    auto begin() const { return fields_.begin(); }
    auto end() const { return fields_.end(); }

private:
    std::vector<std::pair<std::string, std::string>> fields_;
};

}  // namespace vexim::testing::fake
