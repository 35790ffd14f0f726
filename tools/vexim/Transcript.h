#pragma once

#include <chrono>
#include <functional>
#include <string>

#include "VexIMLib/Foundation/Dictionary.h"

/// The demo's output: one line for each step, with what was observed, and the overall result at the
/// end.
class Transcript {
public:
    /// `budget` limits the whole run: steps that begin later fail at once. With `isJSON` each line
    /// is a JSON object.
    Transcript(std::chrono::seconds budget, bool isJSON);

    /// A line without a check.
    void say(const std::string& line);
    /// Runs the main queue until `arrived` is true, for ten seconds at most and not beyond the
    /// budget. Then prints the step, and whether `held` is true. If it is not, `seen` says what was
    /// there instead.
    bool expect(const std::string& step, const std::function<bool()>& arrived,
                const std::function<bool()>& held, const std::function<std::string()>& seen);

    bool allHeld() const noexcept { return failures_ == 0; }
    /// Prints the last line.
    void finish();

private:
    void print(const std::string& line, const vexim::Dictionary& record);

    const bool isJSON_;
    const std::chrono::steady_clock::time_point end_;
    int steps_ = 0;
    int failures_ = 0;
};
