#include "VexIMLib/internal/Networking/VXIMAFMultipartBodyStream.h"

#include <algorithm>
#include <utility>

namespace {
// seconds; a longer one would overflow the clock's nanoseconds
constexpr double kLongestDelay = 1e9;
}  // namespace

std::shared_ptr<VXIMAFMultipartBodyStream> VXIMAFMultipartBodyStream::initWithStringEncoding(
    vexim::StringEncoding encoding) {
    return vexim::create<VXIMAFMultipartBodyStream>(encoding);
}

bool VXIMAFMultipartBodyStream::initialise(vexim::StringEncoding encoding) {
    stringEncoding_ = encoding;
    return true;
}

void VXIMAFMultipartBodyStream::setInitialAndFinalBoundaries() {
    if (parts_.empty()) return;
    for (const auto& part : parts_) {
        part->setHasInitialBoundary(false);
        part->setHasFinalBoundary(false);
    }
    parts_.front()->setHasInitialBoundary(true);
    parts_.back()->setHasFinalBoundary(true);
}

std::uint64_t VXIMAFMultipartBodyStream::contentLength() const {
    std::uint64_t length = 0;
    for (const auto& part : parts_) length += part->contentLength();
    return length;
}

void VXIMAFMultipartBodyStream::open() {
    if (streamStatus_ == vexim::StreamStatus::Open) return;
    streamStatus_ = vexim::StreamStatus::Open;
    setInitialAndFinalBoundaries();
    nextPart_ = 0;
}

void VXIMAFMultipartBodyStream::close() { streamStatus_ = vexim::StreamStatus::Closed; }

bool VXIMAFMultipartBodyStream::hasBytesAvailable() const {
    return streamStatus_ == vexim::StreamStatus::Open;
}

std::int64_t VXIMAFMultipartBodyStream::read(std::uint8_t* buffer, std::size_t maxLength) {
    if (streamStatus_ == vexim::StreamStatus::Closed) return 0;
    const auto limit =
        static_cast<std::size_t>(std::min<std::uint64_t>(numberOfBytesInPacket_, maxLength));
    std::size_t total = 0;
    while (total < limit && !isInterrupted() && moveToUnreadPart()) {
        const auto count = currentPart_->read(buffer + total, limit - total);
        if (count == -1) {
            streamError_ = currentPart_->inputStream()->streamError();
            break;
        }
        total += static_cast<std::size_t>(count);
        if (delay_ > 0) rest();
    }
    return static_cast<std::int64_t>(total);
}

vexim::InputStream::Piece VXIMAFMultipartBodyStream::readPiece(std::uint8_t* buffer,
                                                               std::size_t maxLength) {
    if (streamStatus_ == vexim::StreamStatus::Closed || isInterrupted()) return {};
    // The main thread has opened the contents since the last piece, perhaps in vain.
    if (currentPart_ && currentPart_->hasFailed()) return failedPiece();
    if (!moveToUnreadPart()) return {};
    auto limit =
        static_cast<std::size_t>(std::min<std::uint64_t>(numberOfBytesInPacket_, maxLength));
    if (limit == 0) return {};
    if (delay_ > 0) limit -= std::min(limit, inPacket_);
    Piece piece{currentPart_->readPhase(buffer, limit)};
    if (piece.count < 0) return failedPiece();
    inPacket_ += static_cast<std::size_t>(piece.count);
    const bool isPhaseOver = currentPart_->isPhaseOver();
    if (isPhaseOver) piece.onMain = [part = currentPart_] { part->transitionToNextPhase(); };
    // All that a part can give at once, up to a packet, counts as one piece, even if it needs the
    // main thread in between.
    if (isPhaseOver && currentPart_->phase() != VXIMAFHTTPBodyPart::Phase::FinalBoundary)
        return piece;
    inPacket_ = 0;
    if (delay_ > 0) piece.rest = pause();
    return piece;
}

vexim::InputStream::Piece VXIMAFMultipartBodyStream::failedPiece() {
    streamError_ = currentPart_->inputStream()->streamError();
    return {};
}

bool VXIMAFMultipartBodyStream::readsNonBlocking() const {
    return streamStatus_ == vexim::StreamStatus::Open && delay_ <= 0 && currentPart_ &&
           currentPart_->readsNonBlocking();
}

std::int64_t VXIMAFMultipartBodyStream::readNonBlocking(std::uint8_t* buffer,
                                                        std::size_t maxLength) {
    if (!readsNonBlocking()) return -1;
    const auto limit =
        static_cast<std::size_t>(std::min<std::uint64_t>(numberOfBytesInPacket_, maxLength));
    return currentPart_->inputStream()->readNonBlocking(buffer, limit);
}

/// False when all parts have been read.
bool VXIMAFMultipartBodyStream::moveToUnreadPart() {
    while (!currentPart_ || !currentPart_->hasBytesAvailable()) {
        if (!moveToNextPart()) return false;
    }
    return true;
}

bool VXIMAFMultipartBodyStream::moveToNextPart() {
    currentPart_ = nextPart_ && *nextPart_ < parts_.size() ? parts_[(*nextPart_)++] : nullptr;
    vexim::MutexLock lock(interruptMutex_);
    currentContents_ = currentPart_ ? currentPart_->inputStream() : nullptr;
    return currentPart_ != nullptr;
}

std::chrono::nanoseconds VXIMAFMultipartBodyStream::pause() const {
    return std::chrono::duration_cast<std::chrono::nanoseconds>(
        std::chrono::duration<double>(std::min(delay_, kLongestDelay)));
}

void VXIMAFMultipartBodyStream::rest() {
    vexim::MutexLock lock(interruptMutex_);
    const auto end = std::chrono::steady_clock::now() + pause();
    while (!interrupted_ && interruption_.waitUntil(interruptMutex_, end)) {
    }
}

bool VXIMAFMultipartBodyStream::isInterrupted() {
    vexim::MutexLock lock(interruptMutex_);
    return interrupted_;
}

void VXIMAFMultipartBodyStream::interrupt() {
    std::shared_ptr<vexim::InputStream> contents;
    {
        vexim::MutexLock lock(interruptMutex_);
        interrupted_ = true;
        contents = currentContents_;
    }
    interruption_.notifyAll();
    if (contents) contents->interrupt();
}

std::shared_ptr<vexim::Object> VXIMAFMultipartBodyStream::copy() const {
    auto copy = initWithStringEncoding(stringEncoding_);
    for (const auto& part : parts_)
        copy->appendHTTPBodyPart(std::static_pointer_cast<VXIMAFHTTPBodyPart>(part->copy()));
    copy->setInitialAndFinalBoundaries();
    return copy;
}

std::shared_ptr<vexim::InputStream> VXIMAFMultipartBodyStream::again() const {
    auto stream = initWithStringEncoding(stringEncoding_);
    stream->numberOfBytesInPacket_ = numberOfBytesInPacket_;
    stream->delay_ = delay_;
    for (const auto& part : parts_) {
        auto repeated = part->again();
        if (!repeated) return nullptr;
        stream->appendHTTPBodyPart(std::move(repeated));
    }
    return stream;
}
