#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <variant>

#include "VexIMLib/Foundation/Data.h"
#include "VexIMLib/Foundation/Dictionary.h"
#include "VexIMLib/Foundation/Object.h"
#include "VexIMLib/Foundation/URL.h"
#include "VexIMLib/internal/Platform/Files/InputStream.h"

namespace vexim {

/// The encoding of boundaries and headers. All text in the library is UTF-8, so there is only one.
enum class StringEncoding : std::uint64_t { UTF8 = 4 };

}  // namespace vexim

/// One part of a multipart body. It is a small state machine that reads its boundary, its headers,
/// its contents and, for the last part, the final boundary, in pieces of any size.
///
/// It has more than 25 functions: most of them read or set one field.
class VXIMAFHTTPBodyPart : public vexim::Object {
public:
    using vexim::Object::Object;
    ~VXIMAFHTTPBodyPart() override;

    /// No contents means empty contents.
    using Body =
        std::variant<std::monostate, vexim::Data, vexim::URL, std::shared_ptr<vexim::InputStream>>;
    enum class Phase : std::int32_t {
        None = 0,
        EncapsulationBoundary = 1,
        Header = 2,
        Body = 3,
        FinalBoundary = 4
    };

    static std::shared_ptr<VXIMAFHTTPBodyPart> init();

    vexim::StringEncoding stringEncoding() const noexcept { return stringEncoding_; }
    void setStringEncoding(vexim::StringEncoding encoding) noexcept { stringEncoding_ = encoding; }
    const vexim::Dictionary& headers() const noexcept { return headers_; }
    void setHeaders(vexim::Dictionary headers) { headers_ = std::move(headers); }
    const std::string& boundary() const noexcept { return boundary_; }
    void setBoundary(std::string boundary) { boundary_ = std::move(boundary); }
    const Body& body() const noexcept { return body_; }
    void setBody(Body body) { body_ = std::move(body); }
    /// The announced length of the contents in bytes; it is not checked here.
    std::uint64_t bodyContentLength() const noexcept { return bodyContentLength_; }
    void setBodyContentLength(std::uint64_t length) noexcept { bodyContentLength_ = length; }
    bool hasInitialBoundary() const noexcept { return hasInitialBoundary_; }
    void setHasInitialBoundary(bool has) noexcept { hasInitialBoundary_ = has; }
    bool hasFinalBoundary() const noexcept { return hasFinalBoundary_; }
    void setHasFinalBoundary(bool has) noexcept { hasFinalBoundary_ = has; }
    Phase phase() const noexcept { return phase_; }

    /// The contents as a stream, made only once.
    const std::shared_ptr<vexim::InputStream>& inputStream();
    /// "name: value" lines in the headers' order, and the empty line after them.
    std::string stringForHeaders() const;
    /// Bytes of the whole part, boundaries and headers included.
    std::uint64_t contentLength() const;
    bool hasBytesAvailable();
    /// Whether the contents could not be opened or read.
    bool hasFailed();
    /// Returns how many bytes came; -1 if the contents could not be read (see the input stream's
    /// error) or the process is exiting.
    std::int64_t read(std::uint8_t* buffer, std::size_t maxLength);
    /// The same, but only to the end of the current phase, without waiting for the main thread.
    /// After the phase call `transitionToNextPhase`.
    std::int64_t readPhase(std::uint8_t* buffer, std::size_t maxLength);
    bool isPhaseOver();
    /// Whether it is inside contents that can be read without waiting. (Opening and closing them
    /// needs the main thread.)
    bool readsNonBlocking() const {
        return phase_ == Phase::Body && inputStream_ && inputStream_->readsNonBlocking();
    }
    /// Runs on the main thread, where the contents are opened and closed. Called elsewhere, it
    /// waits for the main thread. False once the process is exiting.
    bool transitionToNextPhase();

    /// A copy that starts from the beginning, without boundary flags. The stream to which it is
    /// added sets them.
    std::shared_ptr<vexim::Object> copy() const override;
    /// A copy that reads the contents again; nullptr if they come from a stream that cannot be read
    /// twice.
    std::shared_ptr<VXIMAFHTTPBodyPart> again() const;

    bool initialise();

private:
    std::string openingBoundary() const;
    std::string finalBoundary() const;
    /// The fixed text of the phase; empty for the contents.
    std::string section() const;
    void enter(Phase phase) noexcept;

    vexim::StringEncoding stringEncoding_ = vexim::StringEncoding::UTF8;
    vexim::Dictionary headers_;
    std::string boundary_;
    Body body_;
    std::uint64_t bodyContentLength_ = 0;
    std::shared_ptr<vexim::InputStream> inputStream_;
    bool hasInitialBoundary_ = false;
    bool hasFinalBoundary_ = false;
    Phase phase_ = Phase::None;
    std::uint64_t phaseReadOffset_ = 0;
};
