#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include "VexIMLib/Foundation/Data.h"
#include "VexIMLib/Foundation/Dictionary.h"
#include "VexIMLib/Foundation/Error.h"
#include "VexIMLib/Foundation/Object.h"
#include "VexIMLib/Foundation/URL.h"
#include "VexIMLib/internal/Networking/VXIMAFMultipartBodyStream.h"
#include "VexIMLib/internal/Networking/VXIMRequest.h"

/// Builds a "multipart/form-data" body (RFC 7578) for a request. The parts are sent in the order in
/// which they are added.
class VXIMAFStreamingMultipartFormData : public vexim::Object {
public:
    using vexim::Object::Object;

    static std::shared_ptr<VXIMAFStreamingMultipartFormData> initWithURLRequest(
        std::shared_ptr<VXIMRequest> request, vexim::StringEncoding encoding);

    const std::shared_ptr<VXIMRequest>& request() const noexcept { return request_; }
    vexim::StringEncoding stringEncoding() const noexcept { return stringEncoding_; }
    const std::string& boundary() const noexcept { return boundary_; }
    const std::shared_ptr<VXIMAFMultipartBodyStream>& bodyStream() const noexcept {
        return bodyStream_;
    }

    /// Names the part after the URL's last path component and takes its MIME type from the
    /// extension.
    bool appendPartWithFileURL(const vexim::URL& fileURL, const std::string& name,
                               vexim::ErrorPtr* error);
    /// Returns false, with `error` set if given, for anything but a file URL and for a missing file
    /// (both "AFURLRequestSerializationErrorDomain" -1000), and for a file whose attributes cannot
    /// be read.
    bool appendPartWithFileURL(const vexim::URL& fileURL, const std::string& name,
                               const std::string& fileName, const std::string& mimeType,
                               vexim::ErrorPtr* error);
    /// `length` is not checked. A null stream means no bytes.
    void appendPartWithInputStream(std::shared_ptr<vexim::InputStream> stream,
                                   const std::string& name, const std::string& fileName,
                                   std::int64_t length, const std::string& mimeType);
    void appendPartWithFileData(vexim::Data data, const std::string& name,
                                const std::string& fileName, const std::string& mimeType);
    void appendPartWithFormData(vexim::Data data, const std::string& name);
    void appendPartWithHeaders(vexim::Dictionary headers, vexim::Data body);

    /// Each read of the body gives at most `packetSize` bytes, and the reader sleeps `delay`
    /// seconds after each piece.
    void throttleBandwidthWithPacketSize(std::uint64_t packetSize, double delay);

    /// Sets the request's body, type and length. A form without parts does not change the request.
    std::shared_ptr<VXIMRequest> requestByFinalizingMultipartFormData();

    bool initialise(std::shared_ptr<VXIMRequest> request, vexim::StringEncoding encoding);

private:
    void appendPart(vexim::Dictionary headers, VXIMAFHTTPBodyPart::Body body, std::uint64_t length);

    std::shared_ptr<VXIMRequest> request_;
    vexim::StringEncoding stringEncoding_ = vexim::StringEncoding::UTF8;
    std::string boundary_;
    std::shared_ptr<VXIMAFMultipartBodyStream> bodyStream_;
};
