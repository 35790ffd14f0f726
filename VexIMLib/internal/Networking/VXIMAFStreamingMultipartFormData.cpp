#include "VexIMLib/internal/Networking/VXIMAFStreamingMultipartFormData.h"

#include <cstdio>
#include <utility>

#include "VexIMLib/Foundation/Random.h"
#include "VexIMLib/internal/Platform/Files/FileManager.h"
#include "VexIMLib/internal/Platform/Files/MIMETypes.h"

namespace {

constexpr const char* kErrorDomain = "AFURLRequestSerializationErrorDomain";

std::string newBoundary() {
    auto random = vexim::Random::shared();
    const auto first = random->next32();
    const auto second = random->next32();
    char text[32];
    std::snprintf(text, sizeof text, "Boundary+%08X%08X", first, second);
    return text;
}

/// A name for use inside quotes. Quotes and line ends are escaped as in browsers (HTML,
/// multipart/form-data encoding).
std::string quoted(std::string_view name) {
    std::string text = "\"";
    for (const char c : name) {
        switch (c) {
            case '"': text += "%22"; break;
            case '\r': text += "%0D"; break;
            case '\n': text += "%0A"; break;
            default: text += c;
        }
    }
    return text += '"';
}

vexim::Dictionary fileHeaders(const std::string& name, const std::string& fileName,
                              const std::string& mimeType) {
    return {{"Content-Disposition",
             "form-data; name=" + quoted(name) + "; filename=" + quoted(fileName)},
            {"Content-Type", mimeType}};
}

bool refuse(vexim::ErrorPtr* error, const char* description) {
    if (error)
        *error = vexim::Error::withDescription(kErrorDomain, vexim::URLErrorBadURL, description);
    return false;
}

}  // namespace

std::shared_ptr<VXIMAFStreamingMultipartFormData>
VXIMAFStreamingMultipartFormData::initWithURLRequest(std::shared_ptr<VXIMRequest> request,
                                                     vexim::StringEncoding encoding) {
    return vexim::create<VXIMAFStreamingMultipartFormData>(std::move(request), encoding);
}

bool VXIMAFStreamingMultipartFormData::initialise(std::shared_ptr<VXIMRequest> request,
                                                  vexim::StringEncoding encoding) {
    request_ = std::move(request);
    stringEncoding_ = encoding;
    boundary_ = newBoundary();
    bodyStream_ = VXIMAFMultipartBodyStream::initWithStringEncoding(encoding);
    return true;
}

bool VXIMAFStreamingMultipartFormData::appendPartWithFileURL(const vexim::URL& fileURL,
                                                             const std::string& name,
                                                             vexim::ErrorPtr* error) {
    const auto mimeType = vexim::mimeTypeForExtension(fileURL.pathExtension());
    return appendPartWithFileURL(fileURL, name, fileURL.lastPathComponent(),
                                 mimeType.value_or("application/octet-stream"), error);
}

bool VXIMAFStreamingMultipartFormData::appendPartWithFileURL(const vexim::URL& fileURL,
                                                             const std::string& name,
                                                             const std::string& fileName,
                                                             const std::string& mimeType,
                                                             vexim::ErrorPtr* error) {
    if (!fileURL.isFileURL()) return refuse(error, "Expected URL to be a file URL");
    if (!vexim::FileManager::fileExists(fileURL.path()))
        return refuse(error, "File URL not reachable.");
    const auto attributes = vexim::FileManager::attributes(fileURL.path(), error);
    if (!attributes) return false;
    appendPart(fileHeaders(name, fileName, mimeType), fileURL, attributes->size);
    return true;
}

void VXIMAFStreamingMultipartFormData::appendPartWithInputStream(
    std::shared_ptr<vexim::InputStream> stream, const std::string& name,
    const std::string& fileName, std::int64_t length, const std::string& mimeType) {
    appendPart(fileHeaders(name, fileName, mimeType), std::move(stream),
               static_cast<std::uint64_t>(length));
}

void VXIMAFStreamingMultipartFormData::appendPartWithFileData(vexim::Data data,
                                                              const std::string& name,
                                                              const std::string& fileName,
                                                              const std::string& mimeType) {
    appendPartWithHeaders(fileHeaders(name, fileName, mimeType), std::move(data));
}

void VXIMAFStreamingMultipartFormData::appendPartWithFormData(vexim::Data data,
                                                              const std::string& name) {
    appendPartWithHeaders({{"Content-Disposition", "form-data; name=" + quoted(name)}},
                          std::move(data));
}

void VXIMAFStreamingMultipartFormData::appendPartWithHeaders(vexim::Dictionary headers,
                                                             vexim::Data body) {
    const auto length = body.size();
    appendPart(std::move(headers), std::move(body), length);
}

void VXIMAFStreamingMultipartFormData::appendPart(vexim::Dictionary headers,
                                                  VXIMAFHTTPBodyPart::Body body,
                                                  std::uint64_t length) {
    auto part = VXIMAFHTTPBodyPart::init();
    part->setStringEncoding(stringEncoding_);
    part->setHeaders(std::move(headers));
    part->setBoundary(boundary_);
    part->setBody(std::move(body));
    part->setBodyContentLength(length);
    bodyStream_->appendHTTPBodyPart(std::move(part));
}

void VXIMAFStreamingMultipartFormData::throttleBandwidthWithPacketSize(std::uint64_t packetSize,
                                                                       double delay) {
    bodyStream_->setNumberOfBytesInPacket(packetSize);
    bodyStream_->setDelay(delay);
}

std::shared_ptr<VXIMRequest>
VXIMAFStreamingMultipartFormData::requestByFinalizingMultipartFormData() {
    if (bodyStream_->isEmpty()) return request_;
    bodyStream_->setInitialAndFinalBoundaries();
    request_->setBodyStream(bodyStream_);
    request_->setValueForHTTPHeaderField("multipart/form-data; boundary=" + boundary_,
                                         "Content-Type");
    request_->setValueForHTTPHeaderField(std::to_string(bodyStream_->contentLength()),
                                         "Content-Length");
    return request_;
}
