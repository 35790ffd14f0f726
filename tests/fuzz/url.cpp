// Any path, key and value as a request's URL: the result is a URL that stays the same when it is
// parsed again, or none. Neither path nor query can leave the service's origin or start a new line.

#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

#include "VexIMLib/Foundation/Exception.h"
#include "VexIMLib/Foundation/URL.h"
#include "VexIMLib/VXIMClientConfiguration.h"
#include "VexIMLib/internal/Networking/VXIMRequest.h"

namespace {

void require(bool condition) {
    if (!condition) std::abort();
}

/// Splits the input into three at its first two line feeds.
std::string_view takeLine(std::string_view& text) {
    const auto end = text.find('\n');
    const auto line = text.substr(0, end);
    text.remove_prefix(end == text.npos ? text.size() : end + 1);
    return line;
}

void useService() {
    auto configuration = VXIMClientConfiguration::defaultConfiguration();
    configuration->setSocketURL(vexim::URL::parse("https://im.vexim.example"));
    vxim_configuration = configuration;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
    static const bool isReady = (useService(), true);
    require(isReady);
    std::string_view rest(reinterpret_cast<const char*>(bytes), size);
    const std::string path(takeLine(rest));
    const std::string key(takeLine(rest));
    const std::string value(rest);

    if (const auto parsed = vexim::URL::parse(path)) {
        const auto again = vexim::URL::parse(parsed->absoluteString());
        require(again && again->absoluteString() == parsed->absoluteString());
        (void)parsed->host();
        (void)parsed->port();
    }
    const auto request = VXIMRequest::request();
    const auto url = request->composeURLWithPath(path, vexim::Dictionary{{key, value}});
    if (!url) return 0;
    const std::string text = url->absoluteString();
    for (const char c : text) require(static_cast<unsigned char>(c) > ' ' && c != '\x7f');
    const auto again = vexim::URL::parse(text);
    require(again && again->absoluteString() == text);
    if (!path.starts_with("http") && (path.empty() || path.starts_with('/')))
        require(url->host() == "im.vexim.example");
    return 0;
}
