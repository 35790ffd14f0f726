#pragma once

#include <cstdlib>
#include <fstream>
#include <string>

namespace vexim::bench {

/// Of this process since its mark was set back, in KiB of resident memory.
inline long peakMemory() {
    std::ifstream status("/proc/self/status");
    for (std::string line; std::getline(status, line);) {
        if (line.starts_with("VmHWM:")) return std::strtol(line.c_str() + 6, nullptr, 10);
    }
    return 0;
}
/// Sets the mark back to what is in use now.
inline void forgetPeakMemory() { std::ofstream("/proc/self/clear_refs") << '5'; }

}  // namespace vexim::bench
