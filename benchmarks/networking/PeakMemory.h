#pragma once

#include <cstdlib>
#include <fstream>
#include <string>

namespace vexim::bench {

/// The peak of this process's resident memory since the last reset, in KiB.
inline long peakMemory() {
    std::ifstream status("/proc/self/status");
    for (std::string line; std::getline(status, line);) {
        if (line.starts_with("VmHWM:")) return std::strtol(line.c_str() + 6, nullptr, 10);
    }
    return 0;
}
/// Resets the peak to the present use.
inline void forgetPeakMemory() { std::ofstream("/proc/self/clear_refs") << '5'; }

}  // namespace vexim::bench
