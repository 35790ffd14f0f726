#pragma once

#include <sys/types.h>

#include <optional>
#include <string>
#include <vector>

namespace vexim::testing {

/// A program that runs beside the test, which talks with it in lines. It is killed with this
/// object, if it has not ended.
class ChildProcess {
public:
    /// `words` are the program, looked for in the PATH, and its arguments. Throws
    /// std::runtime_error when it cannot be started.
    explicit ChildProcess(std::vector<std::string> words);
    ~ChildProcess();
    ChildProcess(const ChildProcess&) = delete;
    ChildProcess& operator=(const ChildProcess&) = delete;

    /// The next line of its standard output, without the end; nullopt if none comes within a
    /// minute.
    std::optional<std::string> readLine();
    /// Writes to its standard input. Throws std::runtime_error if it has ended.
    void writeLine(std::string line);
    /// Ends its standard input, which asks our programs to end.
    void closeInput();
    void signal(int number);
    /// Waits for its end, a minute at most: then it is killed. Returns its status as `waitpid`
    /// gives it.
    int wait();

private:
    pid_t process_ = -1;
    int input_ = -1;   // its standard input
    int output_ = -1;  // its standard output
    std::string read_;
};

}  // namespace vexim::testing
