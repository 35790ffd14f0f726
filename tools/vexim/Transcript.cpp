#include "Transcript.h"

#include <algorithm>
#include <cstdio>

#include "VexIMLib/VexIMLib.h"

Transcript::Transcript(std::chrono::seconds budget, bool isJSON)
    : isJSON_(isJSON),
      end_(std::chrono::steady_clock::now() + budget) {}

void Transcript::print(const std::string& line, const vexim::Dictionary& record) {
    std::printf("%s\n", isJSON_ ? vexim::writeJSON(record).text.c_str() : line.c_str());
    std::fflush(stdout);
}

void Transcript::say(const std::string& line) { print(line, {{"chapter", line}}); }

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
    vexim::Dictionary record{{"step", step}, {"held", ok}};
    if (!ok) record.set("seen", seen());
    print((ok ? "  ok    " : "  FAIL  ") + step + (ok ? "" : ": saw " + seen()), record);
    return ok;
}

void Transcript::finish() {
    print(std::to_string(steps_ - failures_) + " of " + std::to_string(steps_) + " steps held",
          {{"steps", steps_}, {"failed", failures_}});
}
