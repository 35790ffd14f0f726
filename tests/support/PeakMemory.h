#pragma once

#include <fstream>
#include <string>

namespace vexim::testing {

/// How far the process's resident memory has grown since construction. Sanitizers keep freed
/// memory, so with one nothing is measured.
class PeakMemory {
public:
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    static constexpr bool kIsMeasured = false;
#else
    static constexpr bool kIsMeasured = true;
#endif

    PeakMemory() {
        std::ofstream("/proc/self/clear_refs") << "5";  // forgets the peak so far
        start_ = read("VmRSS:");
    }
    double grownMiB() const {
        return kIsMeasured ? static_cast<double>(read("VmHWM:") - start_) / 1024 : 0;
    }

private:
    static long read(const std::string& key) {
        std::ifstream status("/proc/self/status");
        for (std::string word; status >> word;) {
            long kibibytes = 0;
            if (word == key && status >> kibibytes) return kibibytes;
        }
        return 0;
    }
    long start_ = 0;
};

}  // namespace vexim::testing
