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
/// Streams are polled, so there is nothing to schedule on a run loop. Derived classes override
/// everything down to `streamError`.
class InputStream : public Object {
public:
    using Object::Object;

    static std::shared_ptr<InputStream> withData(Data data);
    /// What cannot be opened shows as an error once `open` was called.
    static std::shared_ptr<InputStream> withFileAtPath(std::string path);
    /// A file URL; any other one gives a stream that fails to open.
    static std::shared_ptr<InputStream> withURL(const URL& url);

    virtual void open() = 0;
    virtual void close() = 0;
    /// Reads up to `maxLength` bytes: how many came, 0 at the end, -1 on an error (see
    /// `streamError`).
    virtual std::int64_t read(std::uint8_t* buffer, std::size_t maxLength) = 0;
    virtual bool hasBytesAvailable() const = 0;
    virtual StreamStatus streamStatus() const = 0;
    virtual ErrorPtr streamError() const = 0;

    /// What one read found, and what comes before the next one.
    struct Piece {
        /// as from `read`; 0 is the end only when nothing is to be awaited
        std::int64_t count = 0;
        /// a pause
        std::chrono::nanoseconds rest{0};
        /// to be run on the main thread, before the pause
        std::function<void()> onMain = nullptr;
        bool isAwaiting() const { return onMain || rest.count() > 0; }
    };
    /// As `read`, but leaves it to the reader, who has other streams to read meanwhile, to wait for
    /// a pause or the main thread.
    virtual Piece readPiece(std::uint8_t* buffer, std::size_t maxLength) {
        return {read(buffer, maxLength)};
    }

    /// Whether the next bytes may well be had by `readNonBlocking`.
    virtual bool readsNonBlocking() const { return false; }
    /// Reads what is in memory already; -1 when there is nothing (at the end, too): only `read`
    /// knows more, and may wait.
    virtual std::int64_t readNonBlocking(std::uint8_t* /*buffer*/, std::size_t /*maxLength*/) {
        return -1;
    }

    /// Makes a read that waits (for a peer, a pause, another thread) return early, and later ones
    /// not wait. The stream is good for nothing afterwards but `close`. From any thread; nothing to
    /// do for streams that never wait.
    virtual void interrupt() {}

    /// Takes the stream for one upload: false when one has taken it before, so that no body is
    /// begun twice. From any thread.
    bool claim() noexcept { return !claimed_.exchange(true); }
    bool isClaimed() const noexcept { return claimed_; }
    /// Another stream over the same bytes, from their start, for what must be sent again; nullptr
    /// when nobody else can give them, as when they come from a pipe. From any thread, also while
    /// this one is read.
    virtual std::shared_ptr<InputStream> again() const { return nullptr; }
    /// Whether an upload can still give its body from the start.
    bool isSendable() const { return !isClaimed() || again() != nullptr; }

    // What the platform's streams offer besides; nothing by default.
    /// false: no direct access
    virtual bool getBuffer(std::uint8_t** buffer, std::size_t* length);
    virtual Value propertyForKey(std::string_view key) const;
    virtual bool setPropertyForKey(const Value& property, std::string_view key);

private:
    std::atomic<bool> claimed_{false};
};

}  // namespace vexim
