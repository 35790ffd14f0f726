#pragma once

#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace vexim {

/// The cookies of one connection: balancers tell by them which server it belongs to. They go back
/// with every later request of that connection, whatever their attributes say, and are forgotten
/// with it.
class CookieJar {
public:
    /// Takes the value of a "Set-Cookie" (RFC 6265); what is none is ignored.
    void store(std::string_view setCookie);
    /// The value of "Cookie"; empty for none.
    std::string header() const;

private:
    std::vector<std::pair<std::string, std::string>> cookies_;
};

}  // namespace vexim
