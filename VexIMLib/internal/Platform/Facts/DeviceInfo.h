#pragma once

#include <optional>
#include <string>

namespace vexim {

/// Facts about the device and the application's bundle, which a phone's platform would provide. Set
/// them at start-up. Thread-safe. A fact that was not set is nil; the system version is then the
/// running system's.
struct DeviceInfo {
    std::optional<std::string> bundleIdentifier;
    std::optional<std::string> bundleVersion;  ///< "CFBundleVersion"
    std::optional<std::string> systemVersion;
    /// 1140.11 is that of iOS 8; the default is a later one.
    double foundationVersionNumber = 2000;
};

DeviceInfo deviceInfo();
void setDeviceInfo(DeviceInfo info);

/// A fact as `%@` prints it: "(null)" for nil.
inline std::string printed(const std::optional<std::string>& fact) {
    return fact.value_or("(null)");
}

}  // namespace vexim
