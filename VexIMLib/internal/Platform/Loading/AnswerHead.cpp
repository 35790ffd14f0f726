#include "VexIMLib/internal/Platform/Loading/AnswerHead.h"

#include <memory>
#include <string>
#include <utility>

#include "VexIMLib/internal/Foundation/Text/ASCII.h"

namespace vexim {
namespace {

// libcurl's own limit is higher and would look like a lost connection.
constexpr std::size_t kMostBytes = 256 * 1024;

}  // namespace

bool AnswerHead::isTooLong() const noexcept { return bytes_ > kMostBytes; }

bool AnswerHead::add(std::string_view line) {
    bytes_ += line.size();
    if (isComplete_ || isTooLong()) return false;
    const std::string_view text = detail::trimmed(line);
    if (text.empty()) return true;
    if (line.starts_with("HTTP/")) {
        fields_.clear();  // also drops the fields of an interim answer
        return false;
    }
    const auto colon = text.find(':');
    if (colon != std::string_view::npos && colon != 0) {
        fields_.add(std::string(text.substr(0, colon)),
                    std::string(detail::trimmed(text.substr(colon + 1))));
    }
    return false;
}

HTTPURLResponsePtr AnswerHead::finish(const URL& url, int status) {
    isComplete_ = true;
    const auto length = statedContentLength(fields_);
    if (!length) return nullptr;
    const std::string* const encoding = fields_.find("Content-Encoding");
    const bool isEncoded = encoding && !sameHeaderName(*encoding, "identity");
    return std::make_shared<HTTPURLResponse>(
        HTTPURLResponse{url, status, std::move(fields_), isEncoded ? -1 : *length});
}

}  // namespace vexim
