#pragma once

#include <chrono>
#include <memory>
#include <string>

#include "VexIMLib/internal/SocketIO/Transports/Transport.h"

namespace vexim {

/// Sends a session's payloads as HTTP requests. Network thread only.
class PollingTransport {
public:
    /// `listener` must live until the transport is destroyed, or until `close` is called. After
    /// that it is not called any more.
    static std::unique_ptr<PollingTransport> create(TransportOptions options,
                                                    TransportListener& listener);
    virtual ~PollingTransport() = default;

    /// At most one at a time. GetAnswered or RequestFailed follows.
    virtual void get(const std::string& target, const std::string& cookies,
                     std::chrono::milliseconds timeout) = 0;
    /// At most one at a time. PostAnswered or RequestFailed follows.
    virtual void post(const std::string& target, const std::string& cookies, std::string body) = 0;

    /// Posts `body` when the running POST is done, and closes within a second. The transport keeps
    /// itself alive until then.
    virtual void close(const std::string& target, const std::string& cookies, std::string body) = 0;
};

}  // namespace vexim
