#pragma once

#include <functional>
#include <string>

#include "HostLoop.h"

/// The lines of standard input, as they come, or as their reader can take them.
class InputLines {
public:
    /// `line` gets each line without its end, `ended` runs after the last one. `isBusy` is asked
    /// before each line: while it says so, nothing more is read, until `go`.
    InputLines(HostLoop& loop, std::function<bool()> isBusy,
               std::function<void(const std::string&)> line, std::function<void()> ended)
        : loop_(loop),
          isBusy_(std::move(isBusy)),
          line_(std::move(line)),
          ended_(std::move(ended)) {}

    /// Begins, or goes on when the reader is no longer busy.
    void go();
    /// No more is read.
    void stop();

private:
    void read();

    HostLoop& loop_;
    const std::function<bool()> isBusy_;
    const std::function<void(const std::string&)> line_;
    const std::function<void()> ended_;
    std::string bytes_;  // read, from `taken_` on not handed over
    std::size_t taken_ = 0;
    std::size_t searched_ = 0;  // there is no line's end before; a long line is searched once
    bool isWatching_ = false;
    bool isAtEnd_ = false;
    bool isHandingOver_ = false;
    bool isStopped_ = false;
};
