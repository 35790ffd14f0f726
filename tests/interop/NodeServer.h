#pragma once

#include <sys/types.h>

#include <cstdint>
#include <optional>
#include <string>

#include "VexIMLib/Foundation/Dictionary.h"
#include "VexIMLib/Foundation/Value.h"

namespace vexim::testing {

/// An official Socket.IO server in a process of its own, on a free loopback port. It ends with this object, and with this
/// process, whatever becomes of it.
class NodeServer {
public:
    /// `config` is what server.mjs describes: {"version": "4.8", …}.
    explicit NodeServer(const Dictionary& config);
    NodeServer(const NodeServer&) = delete;
    NodeServer& operator=(const NodeServer&) = delete;
    ~NodeServer();

    std::uint16_t port() const noexcept { return port_; }
    /// "http(s)://127.0.0.1:port"
    std::string url() const;
    void command(const Dictionary& what);
    /// The next line that it printed; nil when none comes within seconds.
    Value nextLine();

private:
    bool isSecure_ = false;
    std::uint16_t port_ = 0;
    pid_t process_ = -1;
    int input_ = -1;   // its standard input
    int output_ = -1;  // its standard output
    std::string buffer_;
};

}  // namespace vexim::testing
