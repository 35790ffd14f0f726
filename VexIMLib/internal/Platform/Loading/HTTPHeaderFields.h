#pragma once

#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace vexim {

/// HTTP header fields, in order. Names are compared without case (ASCII) but keep their spelling.
class HTTPHeaderFields {
public:
    using Field = std::pair<std::string, std::string>;
    using const_iterator = std::vector<Field>::const_iterator;

    HTTPHeaderFields() = default;
    HTTPHeaderFields(std::initializer_list<Field> fields);

    /// Replaces all fields of that name by one, at the place of the first, with the new spelling.
    void set(std::string name, std::string value);
    /// Adds a field even if there is one of that name, because an answer may repeat fields.
    void add(std::string name, std::string value);
    void remove(std::string_view name);
    void clear() noexcept { fields_.clear(); }

    /// The value under `name`; repeated fields are joined by ", " (RFC 9110, 5.3).
    std::optional<std::string> value(std::string_view name) const;
    /// The first field of that name, without a copy; nullptr if there is none.
    const std::string* find(std::string_view name) const noexcept;
    bool contains(std::string_view name) const noexcept { return find(name) != nullptr; }

    bool empty() const noexcept { return fields_.empty(); }
    std::size_t size() const noexcept { return fields_.size(); }
    const_iterator begin() const noexcept { return fields_.begin(); }
    const_iterator end() const noexcept { return fields_.end(); }
    friend bool operator==(const HTTPHeaderFields&, const HTTPHeaderFields&) = default;

private:
    std::vector<Field> fields_;
};

/// Whether two field names are the same, without case.
bool sameHeaderName(std::string_view a, std::string_view b) noexcept;
/// Whether `name` is a token (RFC 9110, 5.6.2).
bool isHeaderName(std::string_view name) noexcept;
/// Whether `value` can be sent: without CR, LF or NUL, which could inject other fields.
bool isHeaderValue(std::string_view value) noexcept;

/// nullopt for anything but a nonnegative number of at most 63 bits.
std::optional<std::int64_t> parseContentLength(std::string_view text);

/// The length in an answer's fields; -1 if there is none, nullopt if they contradict each other or
/// are not numbers (RFC 9110, 8.6).
std::optional<std::int64_t> statedContentLength(const HTTPHeaderFields& headers);

}  // namespace vexim
