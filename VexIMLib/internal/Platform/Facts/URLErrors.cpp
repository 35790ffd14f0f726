#include "VexIMLib/internal/Platform/Facts/URLErrors.h"

#include <curl/curl.h>

#include "VexIMLib/Foundation/Dictionary.h"

namespace vexim {

std::string_view urlErrorDescription(std::int64_t code) noexcept {
    switch (code) {
        case URLErrorCancelled: return "cancelled";
        case URLErrorBadURL: return "bad URL";
        case URLErrorTimedOut: return "The request timed out.";
        case URLErrorUnsupportedURL: return "unsupported URL";
        case URLErrorCannotFindHost:
            return "A server with the specified hostname could not be found.";
        case URLErrorCannotConnectToHost: return "Could not connect to the server.";
        case URLErrorNetworkConnectionLost: return "The network connection was lost.";
        case URLErrorDNSLookupFailed:
            return "A server with the specified hostname could not be found.";
        case URLErrorHTTPTooManyRedirects: return "too many HTTP redirects";
        case URLErrorResourceUnavailable: return "resource unavailable";
        case URLErrorNotConnectedToInternet:
            return "The Internet connection appears to be offline.";
        case URLErrorBadServerResponse: return "There was a bad response from the server.";
        case URLErrorZeroByteResource: return "zero byte resource";
        case URLErrorCannotDecodeRawData: return "cannot decode raw data";
        case URLErrorCannotDecodeContentData: return "cannot decode content data";
        case URLErrorCannotParseResponse: return "cannot parse response";
        case URLErrorRequestBodyStreamExhausted: return "request body stream exhausted";
        case URLErrorFileDoesNotExist: return "The requested URL was not found on this server.";
        case URLErrorFileIsDirectory: return "file is directory";
        case URLErrorNoPermissionsToReadFile:
            return "You do not have permission to access the requested resource.";
        case URLErrorDataLengthExceedsMaximum: return "resource exceeds maximum size";
        case URLErrorSecureConnectionFailed:
            return "An SSL error has occurred and a secure connection to the server cannot be made.";
        case URLErrorServerCertificateHasBadDate:
            return "The certificate for this server has expired.";
        case URLErrorServerCertificateUntrusted:
            return "The certificate for this server is invalid.";
        case URLErrorServerCertificateHasUnknownRoot:
            return "The certificate for this server was signed by an unknown certifying authority.";
        case URLErrorServerCertificateNotYetValid:
            return "The certificate for this server is not yet valid.";
        default: return "unknown error";
    }
}

std::string failingURLText(const URL& url, FailingQuery query) {
    // An attachment's address that is not a full URL is used as a path. So a path may contain a URL
    // with credentials.
    const bool isNested = url.encodedPath().find('@') != std::string::npos;
    const bool keepsQuery = query == FailingQuery::Kept && !isNested;
    if (!isNested && !url.user() && !url.password() && (keepsQuery || !url.query()))
        return url.absoluteString();
    const std::string& host = url.host();
    return url.scheme() + "://" + (host.find(':') == std::string::npos ? host : "[" + host + "]") +
           (url.port() ? ":" + std::to_string(*url.port()) : "") +
           (isNested ? "/redacted" : url.encodedPath()) +
           (url.query() ? "?" + (keepsQuery ? *url.query() : "redacted") : "");
}

namespace {

ErrorPtr describedError(std::int64_t code, std::string_view description,
                        const std::optional<URL>& url, std::string_view detail) {
    Dictionary info;
    info.set(kLocalizedDescriptionKey, description);
    if (url) info.set(kFailingURLKey, failingURLText(*url));
    if (!detail.empty()) info.set("NSDebugDescription", detail);
    return Error::make(kURLErrorDomain, code, std::move(info));
}

}  // namespace

ErrorPtr makeURLError(std::int64_t code, const std::optional<URL>& url, std::string_view detail) {
    return describedError(code, urlErrorDescription(code), url, detail);
}

ErrorPtr makeTrustError(std::int64_t code, const std::optional<URL>& url, std::string_view words) {
    return describedError(code, words, url, {});
}

std::int64_t urlErrorCodeForTransferResult(int result) noexcept {
    switch (result) {
        case CURLE_URL_MALFORMAT: return URLErrorBadURL;
        case CURLE_COULDNT_RESOLVE_HOST:
        case CURLE_COULDNT_RESOLVE_PROXY: return URLErrorCannotFindHost;
        case CURLE_COULDNT_CONNECT: return URLErrorCannotConnectToHost;
        case CURLE_OPERATION_TIMEDOUT: return URLErrorTimedOut;
        case CURLE_TOO_MANY_REDIRECTS: return URLErrorHTTPTooManyRedirects;
        case CURLE_FILESIZE_EXCEEDED: return URLErrorDataLengthExceedsMaximum;
        case CURLE_SEND_FAIL_REWIND: return URLErrorRequestBodyStreamExhausted;
        case CURLE_BAD_CONTENT_ENCODING: return URLErrorCannotDecodeContentData;
        case CURLE_WEIRD_SERVER_REPLY:
        // schemes are checked before, so this is an answer that is not HTTP
        case CURLE_UNSUPPORTED_PROTOCOL:
        case CURLE_PROXY: return URLErrorCannotParseResponse;
        // Incomplete or reset: the server closed the connection in the middle.
        case CURLE_GOT_NOTHING:
        case CURLE_PARTIAL_FILE:
        case CURLE_SEND_ERROR:
        case CURLE_RECV_ERROR:
        case CURLE_HTTP2:
        case CURLE_HTTP2_STREAM: return URLErrorNetworkConnectionLost;
        case CURLE_SSL_CIPHER:
        case CURLE_SSL_CACERT_BADFILE:
        case CURLE_SSL_ENGINE_INITFAILED:
        case CURLE_SSL_INVALIDCERTSTATUS: return URLErrorSecureConnectionFailed;
        default: return URLErrorUnknown;
    }
}

}  // namespace vexim
