#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "VexIMLib/Foundation/Export.h"

namespace vexim {

/// An absolute or relative URL (RFC 3986) that keeps the text it was made from.
///
///     const auto url = vexim::URL::parse("https://im.example.org/chat?room=5");
///     url->host();   // "im.example.org"
///     url->query();  // "room=5"
class VEXIM_EXPORT URL {
public:
    /// Parses a URL. nullopt if the text has a character that a URL cannot have (a blank, a control
    /// or non-ASCII character, or one of `"<>\^`{|}`), a broken percent escape, a second `#`, or an
    /// invalid host or port.
    static std::optional<URL> parse(std::string_view text);
    /// Makes a "file" URL and escapes the path as needed. A relative path starts at the working
    /// directory.
    static URL fileURLWithPath(std::string_view path);

    /// The text that it was made from.
    const std::string& absoluteString() const noexcept { return text_; }
    /// The scheme in lower case; empty for a relative URL.
    const std::string& scheme() const noexcept { return scheme_; }
    /// The host; an IPv6 address has no brackets. Empty if there is none.
    const std::string& host() const noexcept { return host_; }
    /// The port in the text; nullopt if there is none.
    std::optional<std::uint16_t> port() const noexcept { return port_; }
    /// The port in the text, or the default of the scheme (80 for http and ws, 443 for https and
    /// wss), or 0.
    std::uint16_t portOrDefault() const noexcept;
    // User and password, percent-decoded; nullopt if there is none.
    const std::optional<std::string>& user() const noexcept { return user_; }
    const std::optional<std::string>& password() const noexcept { return password_; }

    /// The path, percent-decoded, for use as a file name.
    std::string path() const;
    /// The path as in the text.
    const std::string& encodedPath() const noexcept { return path_; }
    /// The query as in the text, without the "?"; nullopt if there is none.
    const std::optional<std::string>& query() const noexcept { return query_; }
    /// The last component of the decoded path. A slash at the end is ignored.
    std::string lastPathComponent() const;
    /// The extension of the last component, without the dot; empty if there is none.
    std::string pathExtension() const;
    /// Whether the scheme is "file".
    bool isFileURL() const noexcept { return scheme_ == "file"; }
    /// Resolves `reference` (for example from a Location header) against this URL (RFC 3986,
    /// section 5). nullopt if it is not a URL.
    std::optional<URL> resolve(std::string_view reference) const;

    /// Whether the texts are equal; nothing is normalised.
    friend bool operator==(const URL& a, const URL& b) noexcept { return a.text_ == b.text_; }

private:
    URL() = default;
    bool readAuthority(std::string_view authority);
    /// "//host:port" as in the text; empty if there is none.
    std::string authorityText() const;

    std::string text_;
    std::string scheme_;
    std::optional<std::string> user_;
    std::optional<std::string> password_;
    std::string host_;
    std::optional<std::uint16_t> port_;
    std::string path_;
    std::optional<std::string> query_;
    std::optional<std::string> fragment_;
    bool hasAuthority_ = false;
};

/// Escapes every UTF-8 byte except the unreserved characters of RFC 3986 (A-Z a-z 0-9 - . _ ~).
VEXIM_EXPORT std::string percentEncode(std::string_view text);
/// Escapes only what RFC 2396 does not allow in a URL (this includes `%`, `#`, `[` and `]`). Its
/// reserved characters (`; / ? : @ & = + $ ,`) stay.
VEXIM_EXPORT std::string percentEscapeLegacy(std::string_view text);
/// Decodes percent escapes. A broken escape stays.
VEXIM_EXPORT std::string percentDecode(std::string_view text);

}  // namespace vexim
