// A part on the wire (RFC 7578, RFC 2046 section 5.1):
//   part := opening header* CRLF contents [final]
//   opening := "--" boundary CRLF             for the first part
//            | CRLF "--" boundary CRLF        for the others
//   header := name ": " value CRLF
//   final := CRLF "--" boundary "--" CRLF     for the last part

#include "VexIMLib/internal/Networking/VXIMAFHTTPBodyPart.h"

#include <algorithm>
#include <cstring>

#include "VexIMLib/Foundation/MainQueue.h"
#include "VexIMLib/Foundation/Value.h"

namespace {

constexpr std::string_view kCRLF = "\r\n";

std::shared_ptr<vexim::InputStream> streamOverBody(const VXIMAFHTTPBodyPart::Body& body) {
    if (const auto* data = std::get_if<vexim::Data>(&body))
        return vexim::InputStream::withData(*data);
    if (const auto* url = std::get_if<vexim::URL>(&body)) return vexim::InputStream::withURL(*url);
    if (const auto* stream = std::get_if<std::shared_ptr<vexim::InputStream>>(&body);
        stream && *stream)
        return *stream;
    return vexim::InputStream::withData({});
}

}  // namespace

std::shared_ptr<VXIMAFHTTPBodyPart> VXIMAFHTTPBodyPart::init() {
    return vexim::create<VXIMAFHTTPBodyPart>();
}

bool VXIMAFHTTPBodyPart::initialise() {
    // Not through a transition: the thread that starts an upload must not wait for the main thread,
    // which may be waiting for it.
    enter(Phase::EncapsulationBoundary);
    return true;
}

VXIMAFHTTPBodyPart::~VXIMAFHTTPBodyPart() {
    if (inputStream_) inputStream_->close();
}

const std::shared_ptr<vexim::InputStream>& VXIMAFHTTPBodyPart::inputStream() {
    if (!inputStream_) inputStream_ = streamOverBody(body_);
    return inputStream_;
}

std::string VXIMAFHTTPBodyPart::stringForHeaders() const {
    std::string text;
    for (const auto [name, value] : headers_)
        text.append(name).append(": ").append(value.description()).append(kCRLF);
    return text.append(kCRLF);
}

std::string VXIMAFHTTPBodyPart::openingBoundary() const {
    std::string text;
    if (!hasInitialBoundary_) text += kCRLF;
    return text.append("--").append(boundary_).append(kCRLF);
}

std::string VXIMAFHTTPBodyPart::finalBoundary() const {
    if (!hasFinalBoundary_) return {};
    return std::string(kCRLF).append("--").append(boundary_).append("--").append(kCRLF);
}

std::uint64_t VXIMAFHTTPBodyPart::contentLength() const {
    return openingBoundary().size() + stringForHeaders().size() + bodyContentLength_ +
           finalBoundary().size();
}

bool VXIMAFHTTPBodyPart::hasBytesAvailable() {
    // The final boundary still follows, although the contents are already closed.
    if (phase_ == Phase::FinalBoundary) return true;
    return inputStream()->streamStatus() < vexim::StreamStatus::AtEnd;
}

bool VXIMAFHTTPBodyPart::hasFailed() {
    return phase_ == Phase::Body && inputStream()->streamStatus() == vexim::StreamStatus::Error;
}

std::int64_t VXIMAFHTTPBodyPart::read(std::uint8_t* buffer, std::size_t maxLength) {
    std::size_t total = 0;
    for (bool isLast = false; !isLast;) {
        const std::int64_t count = readPhase(buffer + total, maxLength - total);
        if (count < 0) return -1;
        total += static_cast<std::size_t>(count);
        if (!isPhaseOver()) break;
        isLast = phase_ == Phase::FinalBoundary;
        if (!transitionToNextPhase()) return -1;
    }
    return static_cast<std::int64_t>(total);
}

std::int64_t VXIMAFHTTPBodyPart::readPhase(std::uint8_t* buffer, std::size_t maxLength) {
    if (phase_ != Phase::Body) {
        const std::string text = section();
        const auto rest = std::string_view(text).substr(static_cast<std::size_t>(phaseReadOffset_));
        const auto count = std::min(rest.size(), maxLength);
        if (count > 0) std::memcpy(buffer, rest.data(), count);
        phaseReadOffset_ += count;
        return static_cast<std::int64_t>(count);
    }
    // A read of no bytes would look like the end.
    const std::int64_t count = maxLength > 0 ? inputStream()->read(buffer, maxLength) : 0;
    return hasFailed() ? -1 : count;
}

bool VXIMAFHTTPBodyPart::isPhaseOver() {
    if (phase_ == Phase::Body) return inputStream()->streamStatus() >= vexim::StreamStatus::AtEnd;
    return phaseReadOffset_ >= section().size();
}

std::string VXIMAFHTTPBodyPart::section() const {
    switch (phase_) {
        case Phase::EncapsulationBoundary: return openingBoundary();
        case Phase::Header: return stringForHeaders();
        case Phase::FinalBoundary: return finalBoundary();
        case Phase::None:
        case Phase::Body: break;
    }
    return {};
}

bool VXIMAFHTTPBodyPart::transitionToNextPhase() {
    auto& mainQueue = vexim::MainQueue::shared();
    if (!mainQueue.isMainThread()) {
        bool moved = false;
        return mainQueue.sync([this, &moved] { moved = transitionToNextPhase(); }) && moved;
    }
    switch (phase_) {
        case Phase::None: enter(Phase::EncapsulationBoundary); break;
        case Phase::EncapsulationBoundary: enter(Phase::Header); break;
        case Phase::Header:
            inputStream()->open();
            enter(Phase::Body);
            break;
        case Phase::Body:
            inputStream()->close();
            enter(Phase::FinalBoundary);
            break;
        case Phase::FinalBoundary: enter(Phase::EncapsulationBoundary); break;
    }
    return true;
}

void VXIMAFHTTPBodyPart::enter(Phase phase) noexcept {
    phase_ = phase;
    phaseReadOffset_ = 0;
}

std::shared_ptr<vexim::Object> VXIMAFHTTPBodyPart::copy() const {
    auto copy = init();
    copy->stringEncoding_ = stringEncoding_;
    copy->headers_ = headers_;
    copy->body_ = body_;
    copy->bodyContentLength_ = bodyContentLength_;
    copy->boundary_ = boundary_;
    return copy;
}

std::shared_ptr<VXIMAFHTTPBodyPart> VXIMAFHTTPBodyPart::again() const {
    auto part = std::static_pointer_cast<VXIMAFHTTPBodyPart>(copy());
    auto* const stream = std::get_if<std::shared_ptr<vexim::InputStream>>(&part->body_);
    if (!stream || !*stream) return part;
    *stream = (*stream)->again();
    return *stream ? part : nullptr;
}
