#pragma once

#include <chrono>
#include <memory>
#include <optional>
#include <string>

#include "VexIMLib/Foundation/Data.h"
#include "VexIMLib/Foundation/URL.h"
#include "VexIMLib/internal/Platform/Files/InputStream.h"
#include "VexIMLib/internal/Platform/Loading/HTTPHeaderFields.h"
#include "VexIMLib/internal/Platform/Trust/Trust.h"

namespace vexim {

/// What a task asks for. A value; copies share the body.
struct URLRequest {
    /// Without one the task fails with -1000; with a scheme other than http and https, with -1002.
    std::optional<URL> url;
    std::string method = "GET";
    /// Sent in this order. Names that are no tokens and values with CR, LF or NUL are left out; so
    /// are "Transfer-Encoding" and "Expect". "Content-Length" is computed for a `body`; for a
    /// `bodyStream` it announces the length.
    HTTPHeaderFields headers;
    Data body;
    /// Used when `body` is empty. Opened on a thread of its own when the connection first asks for
    /// it. Whatever needs it a second time (a retry, a redirection) reads it `again` from its
    /// start, or fails with -1021 when the stream cannot be had again. With a "Content-Length"
    /// header exactly that many bytes must come, or the task fails with -1021; without one it is
    /// sent in chunks.
    std::shared_ptr<InputStream> bodyStream;
    /// How long the connection may stay silent before the task fails with -1001.
    std::chrono::milliseconds timeout{60'000};
    /// Kept for the request's author. There is no cookie store, so none are ever sent or kept.
    bool shouldHandleCookies = false;
    /// Whether to ask for a compressed answer. Downloads ask for none, or their progress could not
    /// be told.
    bool acceptsCompression = true;
    /// Who decides about the server's certificate, and those of all it redirects to; nobody: the
    /// system's authorities. With a fault the task fails with -1200 before anything is sent.
    TrustChoice trust;
};

}  // namespace vexim
