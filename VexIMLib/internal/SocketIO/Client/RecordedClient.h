#pragma once

#include <memory>
#include <optional>

#include "VexIMLib/SocketIOClient.h"
#include "VexIMLib/internal/Platform/Facts/EventRecord.h"

namespace vexim {

/// `SocketIOClient::create` for a client that records the events of its connections. `record` may
/// be nullptr.
std::shared_ptr<SocketIOClient> makeSocketIOClient(const std::optional<URL>& url,
                                                   const Dictionary& options,
                                                   std::shared_ptr<EventRecord> record);

}  // namespace vexim
