#pragma once

#include <cstdint>
#include <memory>

#include "VexIMLib/Foundation/Export.h"

namespace vexim {

/// Where chance comes from.
class VEXIM_EXPORT Random {
public:
    virtual ~Random();
    /// 32 uniformly distributed bits. Callable from any thread.
    virtual std::uint32_t next32() = 0;

    /// Cryptographic quality, drawn in bulk from the crypto library's generator.
    static std::shared_ptr<Random> system();
    /// The source that the library draws from; the system's unless another was set.
    static std::shared_ptr<Random> shared();
    /// Replaces it (nullptr: the system's again). Set it before other threads use the library.
    static void setShared(std::shared_ptr<Random> random);
};

}  // namespace vexim
