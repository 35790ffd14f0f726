#include "VexIMLib/internal/Platform/Loading/CurlHandle.h"

#include <new>
#include <utility>
#include <vector>

#include "VexIMLib/Foundation/URL.h"
#include "VexIMLib/internal/Platform/Loading/CurlMulti.h"
#include "VexIMLib/internal/Platform/Threads/NetworkThreadAsio.h"

namespace vexim {
namespace {

constexpr std::size_t kMostSpares = 64;

// By default libcurl keeps four idle connections for each running transfer and closes the rest
// after every burst. Opening more than this at once would overflow the accept queue of a small
// server, which costs seconds.
constexpr CurlMulti::Limits kLimits{.idleConnections = 64, .connectionsPerHost = 16};

std::vector<std::unique_ptr<CurlHandle>>& spares() {
    // never destroyed, like the network thread
    static auto* const handles = new std::vector<std::unique_ptr<CurlHandle>>;
    return *handles;
}

}  // namespace

CurlMulti& CurlHandle::multi() {
    static auto* const multi = new CurlMulti(NetworkThreadAsio::ioContext(), kLimits);
    return *multi;
}

CurlMulti& CurlHandle::multiForUploads() {
    static auto* const multi = new CurlMulti(NetworkThreadAsio::ioContext(), kLimits);
    return *multi;
}

std::unique_ptr<CurlHandle> CurlHandle::take() {
    auto& handles = spares();
    if (handles.empty()) return std::make_unique<CurlHandle>();
    auto handle = std::move(handles.back());
    handles.pop_back();
    handle->forgetLast();
    return handle;
}

void CurlHandle::recycle(std::unique_ptr<CurlHandle> handle) {
    if (spares().size() < kMostSpares) spares().push_back(std::move(handle));
}

CurlHandle::CurlHandle() : easy_(curl_easy_init()), address_(curl_url()) {
    if (!easy_) throw std::bad_alloc();
    curl_easy_setopt(easy_, CURLOPT_ERRORBUFFER, errorText_);
    curl_easy_setopt(easy_, CURLOPT_PROTOCOLS_STR, "http,https");
    curl_easy_setopt(easy_, CURLOPT_FOLLOWLOCATION, 0L);
    curl_easy_setopt(easy_, CURLOPT_PATH_AS_IS, 1L);  // ids are used in paths unchanged, even "."
    curl_easy_setopt(easy_, CURLOPT_NOSIGNAL, 1L);
    curl_easy_setopt(easy_, CURLOPT_QUICK_EXIT, 1L);  // abandons a name lookup that hangs
    curl_easy_setopt(easy_, CURLOPT_SUPPRESS_CONNECT_HEADERS, 1L);
}

void CurlHandle::forgetLast() noexcept {
    errorText_[0] = '\0';
    headers_.clear();
}

CurlHandle::~CurlHandle() {
    curl_easy_cleanup(easy_);
    curl_url_cleanup(address_);
}

void CurlHandle::setURL(const URL& url) {
    const std::string& text = url.absoluteString();
    curl_easy_setopt(easy_, CURLOPT_URL, text.c_str());
    // libcurl parses a text and formats it again, which costs a tenth of a short transfer. Most
    // requests go to the same origin as the last one, so libcurl gets only a new path and query. It
    // would change escapes in these, and it takes an empty query for none.
    const std::string& path = url.encodedPath();
    const auto& query = url.query();
    const auto originEnd = text.find('/', url.scheme().size() + 3);
    const bool isPlain = path.starts_with('/') && !(query && query->empty()) &&
                         text.find('%') == std::string::npos &&
                         text.find('#') == std::string::npos && originEnd < text.find('?');
    bool isGiven = isPlain && address_;
    if (isGiven && text.compare(0, originEnd, origin_) != 0) {
        origin_.assign(text, 0, originEnd);
        isGiven = curl_url_set(address_, CURLUPART_URL, origin_.c_str(), 0) == CURLUE_OK;
        if (!isGiven) origin_.clear();
    }
    isGiven =
        isGiven && curl_url_set(address_, CURLUPART_PATH, path.c_str(), 0) == CURLUE_OK &&
        curl_url_set(address_, CURLUPART_QUERY, query ? query->c_str() : nullptr, 0) == CURLUE_OK;
    // This takes precedence over the text. Without it, libcurl parses the text.
    curl_easy_setopt(easy_, CURLOPT_CURLU, isGiven ? address_ : nullptr);
}

std::string_view CurlHandle::errorText(CURLcode result) const {
    return errorText_[0] ? std::string_view(errorText_)
                         : std::string_view(curl_easy_strerror(result));
}

}  // namespace vexim
