#pragma once

#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <string_view>

#include "VexIMLib/Foundation/Data.h"
#include "VexIMLib/Foundation/Error.h"
#include "VexIMLib/Foundation/Object.h"
#include "VexIMLib/Foundation/URL.h"
#include "VexIMLib/internal/Platform/Files/Stream.h"

namespace vexim {

/// A source of bytes, read by one thread at a time; only `interrupt` may be called meanwhile.
/// Streams are polled, not scheduled on a run loop. Derived classes override everything down to
/// `streamError`.
class InputStream : public Object {
public:
    using Object::Object;

    static std::shared_ptr<InputStream> withData(Data data);
    /// If it cannot be opened, `open` sets the error.
    static std::shared_ptr<InputStream> withFileAtPath(std::string path);
    /// Takes a file URL; with any other URL the stream fails to open.
    static std::shared_ptr<InputStream> withURL(const URL& url);

    virtual void open() = 0;
    virtual void close() = 0;
    /// Reads up to `maxLength` bytes and returns how many came; 0 at the end, -1 on an error (see
    /// `streamError`).
    virtual std::int64_t read(std::uint8_t* buffer, std::size_t maxLength) = 0;
    virtual bool hasBytesAvailable() const = 0;
    virtual StreamStatus streamStatus() const = 0;
    virtual ErrorPtr streamError() const = 0;

    /// The result of one read, and what must happen before the next one.
    struct Piece {
        /// as from `read`; 0 is the end only if there is nothing to wait for
        std::int64_t count = 0;
        /// a pause
        std::chrono::nanoseconds rest{0};
        /// to be run on the main thread, before the pause
        std::function<void()> onMain = nullptr;
        bool isAwaiting() const { return onMain || rest.count() > 0; }
    };
    /// Like `read`, but the reader itself waits for a pause or the main thread, so that it can read
    /// other streams meanwhile.
    virtual Piece readPiece(std::uint8_t* buffer, std::size_t maxLength) {
        return {read(buffer, maxLength)};
    }

    /// Whether `readNonBlocking` can probably read the next bytes.
    virtual bool readsNonBlocking() const { return false; }
    /// Reads only bytes that are in memory already. Returns -1 if there are none, and also at the
    /// end; then call `read`, which may wait.
    virtual std::int64_t readNonBlocking(std::uint8_t* /*buffer*/, std::size_t /*maxLength*/) {
        return -1;
    }

    /// Makes a waiting read return early. Later reads do not wait. Afterwards only `close` may be
    /// called. Call from any thread. Streams that never wait do nothing.
    virtual void interrupt() {}

    /// Claims the stream for one upload. Returns false if it was claimed before, so that no body is
    /// sent twice. Call from any thread.
    bool claim() noexcept { return !claimed_.exchange(true); }
    bool isClaimed() const noexcept { return claimed_; }
    /// Makes another stream with the same bytes, from the start, to send them again. nullptr if
    /// that is impossible, for example for a pipe. Call from any thread, even while this one is
    /// read.
    virtual std::shared_ptr<InputStream> again() const { return nullptr; }
    /// Whether an upload can still give its body from the start.
    bool isSendable() const { return !isClaimed() || again() != nullptr; }

    // The platform's streams have these, too. By default they do nothing; false means no direct
    // access.
    virtual bool getBuffer(std::uint8_t** buffer, std::size_t* length);
    virtual Value propertyForKey(std::string_view key) const;
    virtual bool setPropertyForKey(const Value& property, std::string_view key);

private:
    std::atomic<bool> claimed_{false};
};

}  // namespace vexim
