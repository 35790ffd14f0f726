#pragma once

#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "VexIMLib/internal/SocketIO/Protocol/HeaderList.h"

namespace vexim {

/// The cookies of one connection. Load balancers use them to find the connection's server. They are
/// sent with every later request of the connection, whatever their attributes say, and dropped with
/// it.
class CookieJar {
public:
    /// Adds the value of a "Set-Cookie" header (RFC 6265). Malformed ones are ignored.
    void store(std::string_view setCookie);
    /// The value for the "Cookie" header; empty if there are none.
    std::string header() const;

private:
    std::vector<std::pair<std::string, std::string>> cookies_;
};

/// `headers` with the connection's cookies, behind those that the application sends itself: a
/// request has one such field (RFC 6265, section 5.4).
HeaderList withCookies(HeaderList headers, std::string_view cookies);

}  // namespace vexim
