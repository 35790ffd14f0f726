#include "Transcript.h"

#include <algorithm>
#include <cstdio>

#include "VexIMLib/Foundation/MainQueue.h"

Transcript::Transcript(std::chrono::seconds budget)
    : end_(std::chrono::steady_clock::now() + budget) {}

void Transcript::say(const std::string& line) {
    std::printf("%s\n", line.c_str());
    std::fflush(stdout);
}

bool Transcript::expect(const std::string& step, const std::function<bool()>& arrived,
                        const std::function<bool()>& held,
                        const std::function<std::string()>& seen) {
    using namespace std::chrono_literals;
    const auto left = end_ - std::chrono::steady_clock::now();
    const bool ok = vexim::MainQueue::shared().runUntil(
                        arrived, std::clamp<std::chrono::nanoseconds>(left, 0ns, 10s)) &&
                    held();
    ++steps_;
    if (!ok) ++failures_;
    say((ok ? "  ok    " : "  FAIL  ") + step + (ok ? "" : ": saw " + seen()));
    return ok;
}

void Transcript::finish() {
    say(std::to_string(steps_ - failures_) + " of " + std::to_string(steps_) + " steps held");
}
