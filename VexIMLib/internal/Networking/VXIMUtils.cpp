#include "VexIMLib/internal/Networking/VXIMUtils.h"

#include <cmath>
#include <cstdint>

#include "VexIMLib/Foundation/Clock.h"
#include "VexIMLib/internal/Foundation/Threads/ThreadSafety.h"
#include "VexIMLib/internal/Platform/Facts/Digest.h"
#include "VexIMLib/internal/Platform/Files/FileManager.h"

std::string VXIMUtils::md5FromString(std::string_view text) { return vexim::md5Hex(text); }

std::optional<std::string> VXIMUtils::md5FromData(const std::optional<vexim::Data>& data) {
    if (!data) return std::nullopt;
    return vexim::md5Hex(*data);
}

std::optional<std::string> VXIMUtils::signatureForClientKey(
    const std::optional<std::string>& clientKey) {
    if (!clientKey || clientKey->empty()) return std::nullopt;
    const auto seconds = static_cast<std::int64_t>(std::round(vexim::Clock::shared()->wallTime()));
    // Requests come in bursts, and for one key the signature is the same for a second.
    thread_local struct {
        std::int64_t seconds = 0;
        std::string key, signature;
    } last;
    if (last.seconds != seconds || last.key != *clientKey) {
        const auto timestamp = std::to_string(seconds);
        last = {seconds, *clientKey, md5FromString(timestamp + *clientKey) + ',' + timestamp};
    }
    return last.signature;
}

std::string VXIMUtils::stagingDirectory() {
    return vexim::appendPathComponent(vexim::temporaryDirectory(),
                                      "com.vexora.message.attachments");
}

void VXIMUtils::ensureDirExist(const std::optional<std::string>& path) {
    if (!path || path->empty()) return;
    // Two callers may find the same file where the directory should be. Only one may remove it;
    // otherwise the second removes the first one's directory.
    static vexim::Mutex serial;
    vexim::MutexLock lock(serial);
    if (vexim::FileManager::isDirectory(*path)) return;
    if (vexim::FileManager::fileExists(*path)) vexim::FileManager::remove(*path);
    vexim::FileManager::createDirectory(*path, true);
}
