#include "VexIMLib/internal/SocketIO/Protocol/CookieJar.h"

#include <algorithm>

#include "VexIMLib/internal/Foundation/Text/ASCII.h"

namespace vexim {
namespace {

// Limits for cookies that a server makes us keep and send.
constexpr std::size_t kMaxCookies = 32;
constexpr std::size_t kMaxCookieBytes = 4096;

}  // namespace

void CookieJar::store(std::string_view setCookie) {
    const std::string_view pair = setCookie.substr(0, setCookie.find(';'));
    const auto equals = pair.find('=');
    if (equals == std::string_view::npos || pair.size() > kMaxCookieBytes) return;
    std::string name(detail::trimmed(pair.substr(0, equals)));
    std::string value(detail::trimmed(pair.substr(equals + 1)));
    const auto isControl = [](char c) { return static_cast<unsigned char>(c) < 0x20 || c == 0x7F; };
    if (name.empty() || std::ranges::any_of(name, isControl) ||
        std::ranges::any_of(value, isControl))
        return;
    const auto known =
        std::ranges::find(cookies_, name, &std::pair<std::string, std::string>::first);
    if (known != cookies_.end()) {
        known->second = std::move(value);
    } else if (cookies_.size() < kMaxCookies) {
        cookies_.emplace_back(std::move(name), std::move(value));
    }
}

std::string CookieJar::header() const {
    std::string text;
    for (const auto& [name, value] : cookies_) {
        if (!text.empty()) text += "; ";
        text += name + "=" + value;
    }
    return text;
}

HeaderList withCookies(HeaderList headers, std::string_view cookies) {
    if (cookies.empty()) return headers;
    for (auto& [name, value] : headers) {
        if (!detail::equalsIgnoringCase(name, "Cookie")) continue;
        value.append("; ").append(cookies);
        return headers;
    }
    headers.emplace_back("Cookie", cookies);
    return headers;
}

}  // namespace vexim
