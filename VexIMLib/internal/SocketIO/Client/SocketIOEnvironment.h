#pragma once

#include <memory>

#include "VexIMLib/Foundation/Clock.h"
#include "VexIMLib/Foundation/Random.h"
#include "VexIMLib/internal/Platform/Threads/HostResolver.h"

namespace vexim {

/// What a connection needs from outside. It is passed down from where the client is made.
struct SocketIOEnvironment {
    std::shared_ptr<Clock> clock;
    std::shared_ptr<Random> random;
    HostResolver* resolver;
};

}  // namespace vexim
