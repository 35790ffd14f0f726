#include "VexIMLib/internal/Platform/Facts/ReasonPhrases.h"

#include <algorithm>
#include <array>
#include <utility>

namespace vexim {
namespace {

using Phrase = std::pair<int, std::string_view>;

// Sorted by code.
constexpr std::array kPhrases = {
    Phrase{100, "continue"},
    Phrase{101, "switching protocols"},
    Phrase{200, "no error"},
    Phrase{201, "created"},
    Phrase{202, "accepted"},
    Phrase{203, "non-authoritative information"},
    Phrase{204, "no content"},
    Phrase{205, "reset content"},
    Phrase{206, "partial content"},
    Phrase{300, "multiple choices"},
    Phrase{301, "moved permanently"},
    Phrase{302, "found"},
    Phrase{303, "see other"},
    Phrase{304, "not modified"},
    Phrase{305, "needs proxy"},
    Phrase{307, "temporarily redirected"},
    Phrase{400, "bad request"},
    Phrase{401, "unauthorized"},
    Phrase{402, "payment required"},
    Phrase{403, "forbidden"},
    Phrase{404, "not found"},
    Phrase{405, "method not allowed"},
    Phrase{406, "unacceptable"},
    Phrase{407, "proxy authentication required"},
    Phrase{408, "request timed out"},
    Phrase{409, "conflict"},
    Phrase{410, "no longer exists"},
    Phrase{411, "length required"},
    Phrase{412, "precondition failed"},
    Phrase{413, "request too large"},
    Phrase{414, "requested URL too long"},
    Phrase{415, "unsupported media type"},
    Phrase{416, "requested range not satisfiable"},
    Phrase{417, "expectation failed"},
    Phrase{500, "internal server error"},
    Phrase{501, "unimplemented"},
    Phrase{502, "bad gateway"},
    Phrase{503, "service unavailable"},
    Phrase{504, "gateway timed out"},
    Phrase{505, "unsupported version"},
};

}  // namespace

std::string_view localizedStringForStatusCode(int statusCode) noexcept {
    const auto found =
        std::lower_bound(kPhrases.begin(), kPhrases.end(), statusCode,
                         [](const Phrase& phrase, int code) { return phrase.first < code; });
    if (found != kPhrases.end() && found->first == statusCode) return found->second;
    switch (statusCode / 100) {
        case 1: return "informational";
        case 2: return "success";
        case 3: return "redirected";
        case 4: return "client error";
        default: return "server error";
    }
}

}  // namespace vexim
