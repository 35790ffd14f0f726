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

class Meter;

/// What a task asks for. A value; copies share the body.
struct URLRequest {
    /// Without a URL the task fails with -1000; with a scheme other than http and https it fails
    /// with -1002.
    std::optional<URL> url;
    std::string method = "GET";
    /// Sent in this order. Invalid names and values with CR, LF or NUL are left out; so are
    /// "Transfer-Encoding" and "Expect". For a `body`, "Content-Length" is computed; for a
    /// `bodyStream` it gives the length.
    HTTPHeaderFields headers;
    Data body;
    /// Used if `body` is empty. It is opened on another thread when the connection first asks for
    /// it. A retry or a redirection reads it `again` from its start, or fails with -1021 if that is
    /// impossible. With a "Content-Length" header it must give exactly that many bytes, or the task
    /// fails with -1021. Without one it is sent in chunks.
    std::shared_ptr<InputStream> bodyStream;
    /// How long the connection may stay silent before the task fails with -1001.
    std::chrono::milliseconds timeout{60'000};
    /// For the caller only. There is no cookie store, so cookies are never sent or kept.
    bool shouldHandleCookies = false;
    /// Whether to ask for a compressed answer. Downloads do not, because their progress could not
    /// be computed.
    bool acceptsCompression = true;
    /// Checks the certificates of the server and of all redirections. Without one the system's
    /// authorities are used. If it has an error, the task fails with -1200 before anything is sent.
    TrustChoice trust;
    /// The meter that counts it; nullptr if none does.
    std::shared_ptr<Meter> meter;
};

}  // namespace vexim
