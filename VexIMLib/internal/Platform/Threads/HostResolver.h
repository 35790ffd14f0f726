#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "VexIMLib/Foundation/Error.h"

namespace vexim {

/// Looks up host names without blocking the network thread or delaying the exit of the process.
class HostResolver {
public:
    /// `addresses` are numeric (IPv4 or IPv6, with a scope where one applies), in the order to try
    /// them; with an error (NSURLErrorDomain -1003) there are none.
    using Completion = std::function<void(std::vector<std::string> addresses, ErrorPtr error)>;

    /// A running lookup. Destroying it cancels it: the completion is not called, and nobody waits
    /// for the lookup.
    class Lookup {
    public:
        virtual ~Lookup() = default;
    };

    virtual ~HostResolver() = default;
    /// Call on the network thread; `completion` runs there, never before `resolve` has returned.
    /// Numeric addresses (without brackets) are answered without a lookup.
    virtual std::unique_ptr<Lookup> resolve(std::string host, Completion completion) = 0;

    /// The system's resolver. Each lookup runs on a detached thread. Never destroyed.
    static HostResolver& system();
};

/// Whether `host` is this machine. Then a proxy from the environment is not used, because it cannot
/// reach this machine's local servers.
bool isThisMachine(std::string_view host) noexcept;

}  // namespace vexim
