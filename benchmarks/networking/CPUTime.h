#pragma once

#include <sched.h>
#include <sys/resource.h>

#include <algorithm>
#include <cstddef>
#include <optional>
#include <string>

#include "support/Selection.h"
#include "support/Table.h"

namespace vexim::bench {

/// Seconds of CPU, user and system, of all of this process's threads (RUSAGE_SELF) or of its ended
/// children (RUSAGE_CHILDREN).
inline double cpuSeconds(int who) {
    rusage usage{};
    ::getrusage(who, &usage);
    const auto seconds = [](const timeval& time) {
        return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) * 1e-6;
    };
    return seconds(usage.ru_utime) + seconds(usage.ru_stime);
}

/// Keeps this process, and those that it starts, on one core, because switching cores makes the
/// figures vary.
inline void stayOnOneCore() {
    cpu_set_t cores;
    CPU_ZERO(&cores);
    CPU_SET(static_cast<std::size_t>(::sched_getcpu()), &cores);
    ::sched_setaffinity(0, sizeof cores, &cores);
}

/// Lets both sides take turns and keeps the best of each, because other load can only make it
/// worse. Prints one line.
template <class Ours, class Peer>
void compareCPU(const std::string& name, int rounds, int ownWho, int peerWho, double operations,
                std::optional<double> limit, Ours ours, Peer peer) {
    if (Selection::handles(name, operations, ours, peer)) return;
    double best[2] = {1e9, 1e9};
    for (int round = 0; round <= rounds; ++round) {  // the first one is to warm up
        double before = cpuSeconds(ownWho);
        ours();
        const double own = cpuSeconds(ownWho) - before;
        before = cpuSeconds(peerWho);
        peer();
        const double other = cpuSeconds(peerWho) - before;
        if (round == 0) continue;
        best[0] = std::min(best[0], own);
        best[1] = std::min(best[1], other);
    }
    printRatio(name, best[0] / operations * 1e6, best[1] / operations * 1e6, "us", limit);
}

}  // namespace vexim::bench
