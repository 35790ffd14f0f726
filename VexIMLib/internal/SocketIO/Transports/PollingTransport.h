#pragma once

#include <chrono>
#include <memory>
#include <string>

#include "VexIMLib/internal/SocketIO/Transports/Transport.h"

namespace vexim {

/// Carries a session's payloads as HTTP requests. Lives on the network thread.
class PollingTransport {
public:
    /// `listener` must outlive the transport or its `close` or `drop`; nothing is called after
    /// these.
    static std::unique_ptr<PollingTransport> create(TransportOptions options,
                                                    TransportListener& listener);
    virtual ~PollingTransport() = default;

    /// At most one at a time. GetAnswered or RequestFailed follows.
    virtual void get(const std::string& target, const std::string& cookies,
                     std::chrono::milliseconds timeout) = 0;
    /// At most one at a time. PostAnswered or RequestFailed follows.
    virtual void post(const std::string& target, const std::string& cookies, std::string body) = 0;

    /// Posts `body` once the POST under way is through, and lets go, within a second. The transport
    /// sees to its own end.
    virtual void close(const std::string& target, const std::string& cookies, std::string body) = 0;
};

}  // namespace vexim
