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

/// HTTP header fields: names compare without case (ASCII), keep the case they were given in, and
/// stay in order.
class HTTPHeaderFields {
public:
    using Field = std::pair<std::string, std::string>;
    using const_iterator = std::vector<Field>::const_iterator;

    HTTPHeaderFields() = default;
    HTTPHeaderFields(std::initializer_list<Field> fields);

    /// Replaces every field of that name by one, in the first one's place; the new spelling of the
    /// name is kept.
    void set(std::string name, std::string value);
    /// Adds a field even if the name is there already, as an answer may repeat one.
    void add(std::string name, std::string value);
    void remove(std::string_view name);
    void clear() noexcept { fields_.clear(); }

    /// The value under `name`; repeated fields are joined by ", " (RFC 9110, 5.3).
    std::optional<std::string> value(std::string_view name) const;
    /// The first field of that name, without a copy; nullptr when there is none.
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
/// Whether `value` can be sent: no CR, LF or NUL, which could smuggle further fields in.
bool isHeaderValue(std::string_view value) noexcept;

/// nullopt for what is no number, a negative one, and one beyond 63 bits.
std::optional<std::int64_t> parseContentLength(std::string_view text);

/// The one length that an answer's fields state; -1 when they state none, nullopt when they
/// contradict each other or are no numbers (RFC 9110, 8.6).
std::optional<std::int64_t> statedContentLength(const HTTPHeaderFields& headers);

}  // namespace vexim
