#pragma once

#include <cstdio>
#include <optional>
#include <string>

namespace vexim::bench {

// The rows of the table that scripts/bench prints. A figure above its limit is marked "MISSED",
// which the script looks for. A row without a limit is for information.

inline void printVerdict(double figure, std::optional<double> limit) {
    if (limit) {
        std::printf("   limit %5.2f   %s\n", *limit, figure <= *limit ? "ok" : "MISSED");
    } else {
        std::printf("   for information\n");
    }
    std::fflush(stdout);
}

/// What an operation costs us and the peer, in `unit`, and the ratio, which must not exceed
/// `limit`.
inline void printRatio(const std::string& name, double ours, double peer, const char* unit,
                       std::optional<double> limit) {
    std::printf("%-60s %12.2f %s %12.2f %s   ratio %5.2f", name.c_str(), ours, unit, peer, unit,
                ours / peer);
    printVerdict(ours / peer, limit);
}

/// An amount without a peer.
inline void printAmount(const std::string& name, double amount, const char* unit,
                        std::optional<double> limit) {
    std::printf("%-60s %12.1f %-3s %15s %-14s", name.c_str(), amount, unit, "", "");
    printVerdict(amount, limit);
}

}  // namespace vexim::bench
