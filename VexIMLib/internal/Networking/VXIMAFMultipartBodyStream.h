#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <memory>
#include <optional>
#include <vector>

#include "VexIMLib/internal/Foundation/Threads/ThreadSafety.h"
#include "VexIMLib/internal/Networking/VXIMAFHTTPBodyPart.h"
#include "VexIMLib/internal/Platform/Files/InputStream.h"

/// A "multipart/form-data" body as an input stream over its parts; it is never assembled in memory.
/// The parts' contents are opened and closed on the main thread, and `read` waits for that.
///
/// It has more than 25 functions because it is a list of parts and, with 13 overrides, a stream.
class VXIMAFMultipartBodyStream : public vexim::InputStream {
public:
    using vexim::InputStream::InputStream;

    static std::shared_ptr<VXIMAFMultipartBodyStream> initWithStringEncoding(
        vexim::StringEncoding encoding);

    /// The most bytes that one read gives; at first there is no limit.
    std::uint64_t numberOfBytesInPacket() const noexcept { return numberOfBytesInPacket_; }
    void setNumberOfBytesInPacket(std::uint64_t count) noexcept { numberOfBytesInPacket_ = count; }
    /// How long the reading thread sleeps after each piece of a part, in seconds; at first 0.
    double delay() const noexcept { return delay_; }
    void setDelay(double seconds) noexcept { delay_ = seconds; }
    vexim::StringEncoding stringEncoding() const noexcept { return stringEncoding_; }
    const std::vector<std::shared_ptr<VXIMAFHTTPBodyPart>>& HTTPBodyParts() const noexcept {
        return parts_;
    }

    void appendHTTPBodyPart(std::shared_ptr<VXIMAFHTTPBodyPart> part) {
        parts_.push_back(std::move(part));
    }
    bool isEmpty() const noexcept { return parts_.empty(); }
    /// Marks the first part and the last.
    void setInitialAndFinalBoundaries();
    /// Bytes of the whole body.
    std::uint64_t contentLength() const;

    void open() override;
    void close() override;
    /// Returns the bytes read; 0 at the end. Never -1: if a part cannot be read, `streamError` says
    /// why.
    std::int64_t read(std::uint8_t* buffer, std::size_t maxLength) override;
    /// The parts' contents are opened and closed between two pieces.
    Piece readPiece(std::uint8_t* buffer, std::size_t maxLength) override;
    /// True inside the contents of a part whose stream can do this, unless reading is throttled.
    bool readsNonBlocking() const override;
    std::int64_t readNonBlocking(std::uint8_t* buffer, std::size_t maxLength) override;
    /// True exactly while it is open.
    bool hasBytesAvailable() const override;
    vexim::StreamStatus streamStatus() const override { return streamStatus_; }
    vexim::ErrorPtr streamError() const override { return streamError_; }
    void interrupt() override;
    /// The new stream is throttled in the same way.
    std::shared_ptr<vexim::InputStream> again() const override;

    /// The same parts from the beginning, without throttling.
    std::shared_ptr<vexim::Object> copy() const override;

    bool initialise(vexim::StringEncoding encoding);

private:
    Piece failedPiece();
    bool moveToUnreadPart();
    bool moveToNextPart();
    std::chrono::nanoseconds pause() const;
    void rest();
    bool isInterrupted();

    vexim::StringEncoding stringEncoding_ = vexim::StringEncoding::UTF8;
    std::uint64_t numberOfBytesInPacket_ =
        static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max());
    double delay_ = 0;
    std::vector<std::shared_ptr<VXIMAFHTTPBodyPart>> parts_;
    std::size_t inPacket_ = 0;  // of the current piece in `readPiece`
    // nullopt before the first `open`: there is nothing to read yet
    std::optional<std::size_t> nextPart_;
    std::shared_ptr<VXIMAFHTTPBodyPart> currentPart_;
    vexim::StreamStatus streamStatus_ = vexim::StreamStatus::NotOpen;
    vexim::ErrorPtr streamError_;

    vexim::Mutex interruptMutex_;
    vexim::ConditionVariable interruption_;
    bool interrupted_ VEXIM_GUARDED_BY(interruptMutex_) = false;
    // `interrupt` also interrupts this
    std::shared_ptr<vexim::InputStream> currentContents_ VEXIM_GUARDED_BY(interruptMutex_);
};
