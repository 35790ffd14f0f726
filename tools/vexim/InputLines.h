#pragma once

#include <functional>
#include <string>

#include "HostLoop.h"

/// Reads standard input line by line, as fast as its reader can take the lines.
class InputLines {
public:
    /// Passes each line to `line`, without its end, and calls `ended` after the last one. Before
    /// each line it asks `isBusy`: while that is true, it reads nothing, until `go` is called.
    InputLines(HostLoop& loop, std::function<bool()> isBusy,
               std::function<void(const std::string&)> line, std::function<void()> ended)
        : loop_(loop),
          isBusy_(std::move(isBusy)),
          line_(std::move(line)),
          ended_(std::move(ended)) {}

    /// Starts to read, or continues when the reader is no longer busy.
    void go();
    /// Stops for good.
    void stop();

private:
    void read();

    HostLoop& loop_;
    const std::function<bool()> isBusy_;
    const std::function<void(const std::string&)> line_;
    const std::function<void()> ended_;
    std::string bytes_;  // what was read; before `taken_` it is already passed on
    std::size_t taken_ = 0;
    std::size_t searched_ = 0;  // before this there is no line end, so nothing is searched twice
    bool isWatching_ = false;
    bool isAtEnd_ = false;
    bool isHandingOver_ = false;
    bool isStopped_ = false;
};
