#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "VexIMLib/Foundation/Error.h"

namespace vexim {

/// Looks host names up without ever blocking the network thread or holding up the process's exit.
class HostResolver {
public:
    /// `addresses` are numeric (IPv4 or IPv6, with a scope where one applies), in the order to try
    /// them; with an error (NSURLErrorDomain -1003) there are none.
    using Completion = std::function<void(std::vector<std::string> addresses, ErrorPtr error)>;

    /// A lookup under way. Destroying it cancels: the completion does not come any more, nobody
    /// waits for the lookup.
    class Lookup {
    public:
        virtual ~Lookup() = default;
    };

    virtual ~HostResolver() = default;
    /// Call on the network thread; `completion` runs there, never before `resolve` has returned.
    /// Numeric addresses (without brackets) are answered without a lookup.
    virtual std::unique_ptr<Lookup> resolve(std::string host, Completion completion) = 0;

    /// The system's resolver, each lookup on a detached thread. Never destroyed.
    static HostResolver& system();
};

/// Whether `host` names the machine that asks. A proxy of the environment's is passed by then: it
/// could not reach this machine's own servers as this machine sees them.
bool isThisMachine(std::string_view host) noexcept;

}  // namespace vexim
