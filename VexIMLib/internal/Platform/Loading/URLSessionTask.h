#pragma once

#include <cstdint>
#include <memory>

#include "VexIMLib/Foundation/Error.h"
#include "VexIMLib/Foundation/Object.h"
#include "VexIMLib/internal/Platform/Loading/URLRequest.h"
#include "VexIMLib/internal/Platform/Loading/URLResponse.h"

namespace vexim {

class URLSession;

enum class URLSessionTaskState : int { Running = 0, Suspended = 1, Cancelling = 2, Completed = 3 };

/// One request and its answer. Made suspended by a session; usable from any thread; may be released
/// at any time.
///
/// Observable by the key "state" (the number above). 0 comes on the thread that resumes, 2 on the
/// one that cancels, 3 on the delegate queue right before the delegate's last call.
class URLSessionTask final : public Object {
public:
    explicit URLSessionTask(Creation creation);
    ~URLSessionTask() override;

    /// Starts it; a second call does nothing.
    void resume();
    /// Ends it: the delegate gets -999 and nothing else afterwards. Does nothing after the end.
    void cancel();

    std::int64_t taskIdentifier() const noexcept;
    URLSessionTaskState state() const noexcept;
    std::shared_ptr<const URLRequest> originalRequest() const;
    /// Differs from the original one after a redirection.
    std::shared_ptr<const URLRequest> currentRequest() const;
    /// nullptr until the delegate has got the answer's status and header.
    HTTPURLResponsePtr response() const;
    /// Set at the end.
    ErrorPtr error() const;
    std::int64_t countOfBytesReceived() const noexcept;
    /// -1 when unknown, 0 before an answer.
    std::int64_t countOfBytesExpectedToReceive() const noexcept;
    std::int64_t countOfBytesSent() const noexcept;

    /// Says that the answer is not kept in memory, so the session's limit does not apply. Set it
    /// before `resume`, or in the delegate's dataTaskDidReceiveResponse if the request accepts no
    /// compression.
    void setAnswerIsStreamed(bool streamed) noexcept;
    bool answerIsStreamed() const noexcept;
    /// Says that the delegate is quick with short answers and calls no foreign code. While the
    /// delegate queue is idle, its operations for this task may then run on the network thread.
    void setMayCallOnNetworkThread(bool may) noexcept;

    Value valueForKey(std::string_view key) const override;
    std::string description() const override;

    bool initialise(std::shared_ptr<URLSession> session, std::int64_t identifier,
                    URLRequest request);

    struct Impl;

private:
    const std::unique_ptr<Impl> impl_;
};

}  // namespace vexim
