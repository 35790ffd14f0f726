#include "VexIMLib/internal/Networking/VXIMURLSessionUploadDelegate.h"

#include <utility>

#include "VexIMLib/Foundation/MainQueue.h"
#include "VexIMLib/internal/Networking/ProgressReport.h"

void VXIMURLSessionUploadDelegate::setUploadProgressBlock(VXIMProgress progress) {
    uploadProgressBlock_ = vexim::rest::sharedProgress(std::move(progress));
}

void VXIMURLSessionUploadDelegate::taskDidSendBodyData(vexim::URLSessionTask&, std::int64_t,
                                                       std::int64_t totalSent,
                                                       std::int64_t totalExpected) {
    vexim::rest::reportProgress(uploadProgressBlock_, transfer(), totalSent, totalExpected);
}

void VXIMURLSessionUploadDelegate::dropCallbacks() {
    VXIMURLSessionJSONDelegate::dropCallbacks();
    if (uploadProgressBlock_)
        vexim::MainQueue::shared().async(
            [dropped = std::exchange(uploadProgressBlock_, nullptr)] {});
}
