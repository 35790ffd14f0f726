#pragma once

#include <cstdint>
#include <memory>

#include "VexIMLib/Foundation/Export.h"

namespace vexim {

/// A source of random numbers. A test can set one that always gives the same numbers. The library
/// draws the waits before reconnects and retries, and the boundaries of forms, from it. TLS has its
/// own source, so a predictable one here does not weaken a connection.
///
///     struct Always7 : vexim::Random { std::uint32_t next32() override { return 7; } };
///     vexim::Random::setShared(std::make_shared<Always7>());
class VEXIM_EXPORT Random {
public:
    virtual ~Random();
    /// Returns 32 random bits, uniformly distributed. Call from any thread.
    virtual std::uint32_t next32() = 0;

    /// The default source. It is cryptographically secure: it reads OpenSSL's generator, many bytes
    /// at a time.
    static std::shared_ptr<Random> system();
    /// The source that the library uses: the system's, unless another was set.
    static std::shared_ptr<Random> shared();
    /// Replaces the shared source; nullptr restores the system's. Call it before other threads use
    /// the library.
    static void setShared(std::shared_ptr<Random> random);
};

}  // namespace vexim
