#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "VexIMLib/Foundation/Export.h"

namespace vexim {

/// An absolute or relative URL (RFC 3986) that keeps the text it was made from.
class VEXIM_EXPORT URL {
public:
    /// nullopt when the text holds what no URL may hold (a blank, a control or non-ASCII character,
    /// `"<>\^`{|}`, a broken percent escape, a second `#`) or its authority or port cannot be read.
    static std::optional<URL> parse(std::string_view text);
    /// A "file" URL; what the path holds is escaped as needed. A relative path counts from the
    /// working directory.
    static URL fileURLWithPath(std::string_view path);

    /// The text that it was made from.
    const std::string& absoluteString() const noexcept { return text_; }
    /// Lower case; empty for a relative URL.
    const std::string& scheme() const noexcept { return scheme_; }
    /// Without brackets for an IPv6 address; empty when there is none.
    const std::string& host() const noexcept { return host_; }
    /// The stated port; nullopt when there is none.
    std::optional<std::uint16_t> port() const noexcept { return port_; }
    /// The stated port, else the scheme's own (http, ws 80; https, wss 443), else 0.
    std::uint16_t portOrDefault() const noexcept;
    // Of the authority, percent-decoded; nullopt when there is none.
    const std::optional<std::string>& user() const noexcept { return user_; }
    const std::optional<std::string>& password() const noexcept { return password_; }

    /// Percent-decoded, for file URLs' use.
    std::string path() const;
    /// The path as it stands.
    const std::string& encodedPath() const noexcept { return path_; }
    /// As it stands, without the "?"; nullopt when there is none.
    const std::optional<std::string>& query() const noexcept { return query_; }
    /// What follows the last slash of the decoded path; a slash at its end does not count.
    std::string lastPathComponent() const;
    /// Of the last component. Without the dot; empty when there is none.
    std::string pathExtension() const;
    /// Whether the scheme is "file".
    bool isFileURL() const noexcept { return scheme_ == "file"; }
    /// `reference` (as in a Location header) resolved against this URL, RFC 3986 section 5.
    std::optional<URL> resolve(std::string_view reference) const;

    /// The same text: nothing is normalised.
    friend bool operator==(const URL& a, const URL& b) noexcept { return a.text_ == b.text_; }

private:
    URL() = default;
    bool readAuthority(std::string_view authority);
    /// "//host:port" as it stands; empty when there is none.
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
/// The platform's legacy escaping: only what RFC 2396 does not allow in a URL (so also `%`, `#`,
/// `[`, `]`), leaving its reserved characters (`; / ? : @ & = + $ ,`) as they are.
VEXIM_EXPORT std::string percentEscapeLegacy(std::string_view text);
/// Undoes percent escapes; a broken escape stays as it is.
VEXIM_EXPORT std::string percentDecode(std::string_view text);

}  // namespace vexim
