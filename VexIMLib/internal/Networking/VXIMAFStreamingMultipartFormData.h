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

/// Builds a "multipart/form-data" body (RFC 7578) for a request, part by part; the wire keeps their
/// order.
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
    /// False, with `error` set when given, for what is no file URL, for a file that is not there
    /// (both "AFURLRequestSerializationErrorDomain" -1000) and for one whose attributes cannot be
    /// read.
    bool appendPartWithFileURL(const vexim::URL& fileURL, const std::string& name,
                               const std::string& fileName, const std::string& mimeType,
                               vexim::ErrorPtr* error);
    /// `length` is taken on trust. A null stream stands for no bytes.
    void appendPartWithInputStream(std::shared_ptr<vexim::InputStream> stream,
                                   const std::string& name, const std::string& fileName,
                                   std::int64_t length, const std::string& mimeType);
    void appendPartWithFileData(vexim::Data data, const std::string& name,
                                const std::string& fileName, const std::string& mimeType);
    void appendPartWithFormData(vexim::Data data, const std::string& name);
    void appendPartWithHeaders(vexim::Dictionary headers, vexim::Data body);

    /// No read of the body gives more than `packetSize` bytes, and the reader rests `delay` seconds
    /// after each piece.
    void throttleBandwidthWithPacketSize(std::uint64_t packetSize, double delay);

    /// Gives the request the body, its type and its length; a form without parts leaves the request
    /// as it was.
    std::shared_ptr<VXIMRequest> requestByFinalizingMultipartFormData();

    bool initialise(std::shared_ptr<VXIMRequest> request, vexim::StringEncoding encoding);

private:
    void appendPart(vexim::Dictionary headers, VXIMAFHTTPBodyPart::Body body, std::uint64_t length);

    std::shared_ptr<VXIMRequest> request_;
    vexim::StringEncoding stringEncoding_ = vexim::StringEncoding::UTF8;
    std::string boundary_;
    std::shared_ptr<VXIMAFMultipartBodyStream> bodyStream_;
};
