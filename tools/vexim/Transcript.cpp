#include "Transcript.h"

#include <algorithm>
#include <cstdio>

#include "VexIMLib/Foundation/MainQueue.h"

Transcript::Transcript(std::chrono::seconds budget) : end_(std::chrono::steady_clock::now() + budget) {}

void Transcript::say(const std::string& line) {
    std::printf("%s\n", line.c_str());
    std::fflush(stdout);
}

bool Transcript::expect(const std::string& step, const std::function<bool()>& reached, const std::function<std::string()>& seen) {
    using namespace std::chrono_literals;
    const auto left = end_ - std::chrono::steady_clock::now();
    const bool held = vexim::MainQueue::shared().runUntil(reached, std::clamp<std::chrono::nanoseconds>(left, 0ns, 10s));
    ++steps_;
    if (!held) ++failures_;
    say((held ? "  ok    " : "  FAIL  ") + step + (held ? "" : ": saw " + seen()));
    return held;
}

void Transcript::finish() { say(std::to_string(steps_ - failures_) + " of " + std::to_string(steps_) + " steps held"); }
