#pragma once

#include "VexIMLib/internal/Networking/VXIMURLSessionDataDelegate.h"

/// Reads the body as JSON, turns the service's error body into a "VXErrorDomain" error, and marks
/// what is worth a retry.
class VXIMURLSessionJSONDelegate : public VXIMURLSessionDataDelegate {
public:
    using VXIMURLSessionDataDelegate::VXIMURLSessionDataDelegate;

    void parseResultOfTask(const vexim::URLSessionTask& task) override;
};
