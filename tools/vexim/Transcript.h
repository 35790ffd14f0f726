#pragma once

#include <chrono>
#include <functional>
#include <string>

#include "VexIMLib/Foundation/Dictionary.h"

/// The story as it is told: one line a step, with what was observed, and a verdict at the end.
class Transcript {
public:
    /// `budget` bounds the whole story: a step that begins later fails at once. With `isJSON` each
    /// line is a JSON object.
    Transcript(std::chrono::seconds budget, bool isJSON);

    /// A line that only tells.
    void say(const std::string& line);
    /// Runs the main queue until `arrived`, for as long as the budget lasts but no longer than ten
    /// seconds, and prints the step with the verdict: whether `held`. `seen` tells what was there
    /// instead when it did not.
    bool expect(const std::string& step, const std::function<bool()>& arrived,
                const std::function<bool()>& held, const std::function<std::string()>& seen);

    bool allHeld() const noexcept { return failures_ == 0; }
    /// The closing line.
    void finish();

private:
    void print(const std::string& line, const vexim::Dictionary& record);

    const bool isJSON_;
    const std::chrono::steady_clock::time_point end_;
    int steps_ = 0;
    int failures_ = 0;
};
