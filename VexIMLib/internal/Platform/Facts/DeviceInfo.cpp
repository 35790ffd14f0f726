#include "VexIMLib/internal/Platform/Facts/DeviceInfo.h"

#include <sys/utsname.h>

#include "VexIMLib/internal/Foundation/Threads/ThreadSafety.h"

namespace vexim {
namespace {

std::string runningSystemVersion() {
    utsname system{};
    return ::uname(&system) == 0 ? system.release : "";
}

struct Slot {
    Mutex mutex;
    DeviceInfo info VEXIM_GUARDED_BY(mutex){{}, {}, runningSystemVersion()};
};

Slot& slot() {
    // never destroyed, because threads may read it while the process exits
    static auto* const instance = new Slot;
    return *instance;
}

}  // namespace

DeviceInfo deviceInfo() {
    Slot& shared = slot();
    const MutexLock lock(shared.mutex);
    return shared.info;
}

void setDeviceInfo(DeviceInfo info) {
    Slot& shared = slot();
    const MutexLock lock(shared.mutex);
    shared.info = std::move(info);
}

}  // namespace vexim
