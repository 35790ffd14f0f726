#pragma once

#include <cstdint>
#include <stdexcept>
#include <string>

#include "VexIMLib/Foundation/Dictionary.h"
#include "VexIMLib/Foundation/JSON.h"
#include "support/ChildProcess.h"

namespace vexim::testing {

/// An official Socket.IO server in a process of its own, on a free loopback port. It ends with this
/// object, and also if this process crashes.
class NodeServer {
public:
    /// `config` is what server.mjs describes: {"version": "4.8", …}.
    explicit NodeServer(const Dictionary& config)
        : isSecure_(config.contains("tls")),
          process_({"node", VEXIM_INTEROP_FOLDER "/server.mjs", writeJSON(config).text}),
          port_(static_cast<std::uint16_t>(nextLine().get("port").intValue())) {
        if (port_ == 0) throw std::runtime_error("the server does not listen");
    }

    /// "http(s)://127.0.0.1:port"
    std::string url() const {
        return (isSecure_ ? "https://127.0.0.1:" : "http://127.0.0.1:") + std::to_string(port_);
    }
    void command(const Dictionary& what) { process_.writeLine(writeJSON(what).text); }
    /// The next line that it printed; nil if none comes within a few seconds.
    Value nextLine() {
        const auto line = process_.readLine();
        return line ? parseJSON(*line).value : Value();
    }

private:
    const bool isSecure_;
    ChildProcess process_;
    const std::uint16_t port_;
};

}  // namespace vexim::testing
