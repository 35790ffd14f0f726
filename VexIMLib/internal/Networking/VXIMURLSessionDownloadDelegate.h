#pragma once

#include <memory>
#include <string>

#include "VexIMLib/internal/Networking/VXIMRequest.h"
#include "VexIMLib/internal/Networking/VXIMURLSessionJSONDelegate.h"

/// Writes the body of a 2xx answer into the caller's stream. Any other answer stays in memory and
/// is read as JSON.
class VXIMURLSessionDownloadDelegate : public VXIMURLSessionJSONDelegate {
public:
    using VXIMURLSessionJSONDelegate::VXIMURLSessionJSONDelegate;

    void setNewOutputStreamBlock(VXIMNewOutputStreamBlock block) {
        newOutputStreamBlock_ = std::move(block);
    }
    /// Called on the main queue, once for each piece of bytes that was written.
    void setDownloadProgressBlock(VXIMProgress progress);
    /// The path passed to the stream's factory, and the result.
    const std::string& targetPath() const noexcept { return targetPath_; }
    void setTargetPath(std::string path) { targetPath_ = std::move(path); }

    void dataTaskDidReceiveResponse(
        vexim::URLSessionTask& task, const vexim::HTTPURLResponsePtr& response,
        vexim::URLSessionDelegate::DispositionHandler completionHandler) override;
    void dataTaskDidReceiveData(vexim::URLSessionTask& task, const vexim::Data& data) override;
    void parseResultOfTask(const vexim::URLSessionTask& task) override;

protected:
    void dropCallbacks() override;

private:
    VXIMNewOutputStreamBlock newOutputStreamBlock_;
    // shared with its calls, so that it is never copied
    std::shared_ptr<const VXIMProgress> downloadProgressBlock_;
    std::string targetPath_;
};
