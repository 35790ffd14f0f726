// Any bytes as JSON. What is read is written and read again, and must be the same. The same texts
// are accepted as by Boost.JSON's own reader, except for our intended differences.

#include <boost/json.hpp>
#include <cstdint>
#include <cstdlib>
#include <string_view>

#include "VexIMLib/Foundation/JSON.h"

namespace {

void require(bool condition) {
    if (!condition) std::abort();
}

bool peerAccepts(std::string_view text) {
    boost::json::parse_options options;
    options.max_depth = vexim::kJSONMaxDepth;
    boost::json::error_code error;
    boost::json::parse({text.data(), text.size()}, error, {}, options);
    return !error;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
    const std::string_view text(reinterpret_cast<const char*>(bytes), size);
    const auto read = vexim::parseJSON(text, vexim::JSONFragments::Allow);
    if (read.error) {
        require(read.value.isNil());
        // A number beyond every double: the peer makes it infinity.
        require(!peerAccepts(text) ||
                read.error->localizedDescription().find("exponent overflow") != std::string::npos);
        return 0;
    }
    // We replace halves of surrogate pairs, and skip a byte order mark.
    require(peerAccepts(text) || text.find("\\u") != std::string_view::npos ||
            text.starts_with("\xEF\xBB\xBF"));

    const auto written = vexim::writeJSON(read.value, vexim::JSONFragments::Allow);
    require(!written.error);
    const auto again = vexim::parseJSON(written.text, vexim::JSONFragments::Allow);
    require(!again.error && again.value == read.value);
    require(vexim::writeJSON(again.value, vexim::JSONFragments::Allow).text == written.text);
    (void)read.value.description();
    return 0;
}
