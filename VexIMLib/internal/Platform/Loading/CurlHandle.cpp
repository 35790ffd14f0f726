#include "VexIMLib/internal/Platform/Loading/CurlHandle.h"

#include <new>
#include <utility>
#include <vector>

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
    if (!handles.empty()) {
        auto handle = std::move(handles.back());
        handles.pop_back();
        handle->errorText_[0] = '\0';
        return handle;
    }
    CURL* const easy = curl_easy_init();
    if (!easy) throw std::bad_alloc();
    return std::make_unique<CurlHandle>(easy);
}

void CurlHandle::giveBack(std::unique_ptr<CurlHandle> handle) {
    if (spares().size() < kMostSpares) spares().push_back(std::move(handle));
}

CurlHandle::CurlHandle(CURL* easy) : easy_(easy) {
    curl_easy_setopt(easy_, CURLOPT_ERRORBUFFER, errorText_);
    curl_easy_setopt(easy_, CURLOPT_PROTOCOLS_STR, "http,https");
    curl_easy_setopt(easy_, CURLOPT_FOLLOWLOCATION, 0L);
    curl_easy_setopt(easy_, CURLOPT_PATH_AS_IS, 1L);  // ids are used in paths unchanged, even "."
    curl_easy_setopt(easy_, CURLOPT_NOSIGNAL, 1L);
    curl_easy_setopt(easy_, CURLOPT_QUICK_EXIT, 1L);  // abandons a name lookup that hangs
    curl_easy_setopt(easy_, CURLOPT_SUPPRESS_CONNECT_HEADERS, 1L);
    curl_easy_setopt(easy_, CURLOPT_SSLVERSION, static_cast<long>(CURL_SSLVERSION_TLSv1_2));
}

CurlHandle::~CurlHandle() { curl_easy_cleanup(easy_); }

std::string_view CurlHandle::errorText(CURLcode result) const {
    return errorText_[0] ? std::string_view(errorText_)
                         : std::string_view(curl_easy_strerror(result));
}

}  // namespace vexim
