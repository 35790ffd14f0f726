#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string_view>

#include "VexIMLib/Foundation/Error.h"
#include "VexIMLib/internal/Platform/Loading/URLRequest.h"
#include "VexIMLib/internal/Platform/Loading/URLResponse.h"

namespace vexim {

/// One request and its answer on one connection, over libcurl. Follows no redirect, keeps no
/// cookie, has no patience of its own: the owner watches `bytesMoved` and gives up by destroying
/// it. Network thread only.
class HTTPExchange {
public:
    enum class Flow { Go, Pause, Abort };

    /// Called on the network thread from inside libcurl: must not destroy the exchange, except in
    /// `exchangeEnded`.
    class Handler {
    public:
        /// The head of the answer; interim ones (1xx) are passed over.
        virtual Flow exchangeReceivedHead(HTTPURLResponsePtr head) = 0;
        /// A part of the body, decoded. After Pause the same bytes come again when
        /// `resumeReceiving` was called.
        virtual Flow exchangeReceivedBody(std::string_view bytes) = 0;
        /// `total` bytes of the request's body have gone to the connection.
        virtual void exchangeSentBody(std::int64_t total) = 0;
        /// The last call; nullptr when the answer came whole.
        virtual void exchangeEnded(ErrorPtr error) = 0;

    protected:
        ~Handler() = default;
    };

    /// Starts it. `request` has a URL of scheme http or https; `trust` may be nullptr for http
    /// only, and takes the place of the request's own.
    HTTPExchange(Handler& handler, std::shared_ptr<const URLRequest> request,
                 std::shared_ptr<const Trust> trust);
    HTTPExchange(const HTTPExchange&) = delete;
    HTTPExchange& operator=(const HTTPExchange&) = delete;
    ~HTTPExchange();  // cuts it off if it still runs; nothing is called any more

    void resumeReceiving();
    /// Grows with every byte that goes or comes: what does not grow is silent.
    std::int64_t bytesMoved() const;
    /// Whether the silence is ours: the body's reader or the answer's consumer is behind, or all
    /// connections that the host may have are taken.
    bool waitsForUs() const;
    /// Whether it waits for a connection that another exchange with the same host is opening, to
    /// share it over HTTP/2.
    bool waitsForAnothersConnection() const;
    /// Ends that wait: it opens a connection of its own.
    void openOwnConnection();
    /// Closes the connection at the end, unless others use it: what has been silent for too long
    /// would be for the next one, too.
    void giveUpConnection();

private:
    class Impl;
    std::unique_ptr<Impl> impl_;
};

/// The length that a request's body will have on the wire: nullopt for a stream that announces none
/// (or no number).
std::optional<std::uint64_t> announcedBodyLength(const URLRequest& request);

}  // namespace vexim
