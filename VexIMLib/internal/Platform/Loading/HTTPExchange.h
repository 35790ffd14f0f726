#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string_view>

#include "VexIMLib/Foundation/Error.h"
#include "VexIMLib/internal/Platform/Loading/URLRequest.h"
#include "VexIMLib/internal/Platform/Loading/URLResponse.h"

namespace vexim {

/// One request and its answer on one connection, with libcurl. It follows no redirects, keeps no
/// cookies and has no timeout: the owner watches `bytesMoved` and destroys it to give up. Network
/// thread only.
class HTTPExchange {
public:
    enum class Flow { Go, Pause, Abort };

    /// Called on the network thread, inside libcurl. It must not destroy the exchange, except in
    /// `exchangeEnded`.
    class Handler {
    public:
        /// The status and the header fields of the answer. Interim answers (1xx) are skipped.
        virtual Flow exchangeReceivedHead(HTTPURLResponsePtr head) = 0;
        /// A decoded part of the body. After Pause the same bytes come again once `resumeReceiving`
        /// is called.
        virtual Flow exchangeReceivedBody(std::string_view bytes) = 0;
        /// `total` bytes of the request's body were passed to the connection so far.
        virtual void exchangeSentBody(std::int64_t total) = 0;
        /// The last call; nullptr if the answer is complete.
        virtual void exchangeEnded(ErrorPtr error) = 0;

    protected:
        ~Handler() = default;
    };

    /// Starts it. The URL of `request` must be http or https. `trust` replaces the request's own;
    /// it may be nullptr for http only.
    HTTPExchange(Handler& handler, std::shared_ptr<const URLRequest> request,
                 std::shared_ptr<const Trust> trust);
    HTTPExchange(const HTTPExchange&) = delete;
    HTTPExchange& operator=(const HTTPExchange&) = delete;
    ~HTTPExchange();  // aborts it if it is running; nothing is called any more

    void resumeReceiving();
    /// Grows with every byte sent or received. If it does not grow, the connection is silent.
    std::int64_t bytesMoved() const;
    /// Whether we ourselves cause the silence: the body's reader or the answer's consumer is slow,
    /// or all connections to the host are in use.
    bool isStalledByUs() const;
    /// Whether it is waiting for a connection that another exchange is opening to the same host, to
    /// share it over HTTP/2.
    bool waitsForSharedConnection() const;
    /// Ends that wait: it opens its own connection.
    void openOwnConnection();
    /// Closes the connection at the end, unless other exchanges use it. It has been silent for too
    /// long, and probably would be for the next request, too.
    void giveUpConnection();

private:
    class Impl;
    std::unique_ptr<Impl> impl_;
};

/// The length of a request's body on the wire; nullopt for a stream without a valid length.
std::optional<std::uint64_t> announcedBodyLength(const URLRequest& request);

}  // namespace vexim
