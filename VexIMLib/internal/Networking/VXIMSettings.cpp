#include "VexIMLib/VXIMSettings.h"

#include <utility>

#include "VexIMLib/internal/Networking/VXIMURLSessionManager.h"
#include "VexIMLib/internal/Platform/Facts/DeviceInfo.h"

namespace vexim {

void setApplicationInfo(ApplicationInfo info) {
    DeviceInfo device = deviceInfo();
    device.bundleIdentifier = std::move(info.bundleIdentifier);
    device.bundleVersion = std::move(info.bundleVersion);
    if (info.systemVersion) device.systemVersion = std::move(info.systemVersion);
    setDeviceInfo(std::move(device));
}

void setKeepsFinishedDelegates(bool keeps) {
    VXIMURLSessionManager::defaultManager()->setKeepsFinishedDelegates(keeps);
}

}  // namespace vexim
