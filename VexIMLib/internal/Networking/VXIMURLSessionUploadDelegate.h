#pragma once

#include <memory>

#include "VexIMLib/internal/Networking/VXIMURLSessionJSONDelegate.h"

/// Reports how much of the body has been sent.
class VXIMURLSessionUploadDelegate : public VXIMURLSessionJSONDelegate {
public:
    using VXIMURLSessionJSONDelegate::VXIMURLSessionJSONDelegate;

    /// Called on the main queue, once for each report of the session.
    void setUploadProgressBlock(VXIMProgress progress);

    void taskDidSendBodyData(vexim::URLSessionTask& task, std::int64_t sent, std::int64_t totalSent,
                             std::int64_t totalExpected) override;

protected:
    void dropCallbacks() override;

private:
    // shared with its calls, so that it is never copied
    std::shared_ptr<const VXIMProgress> uploadProgressBlock_;
};
