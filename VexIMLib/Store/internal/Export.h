#pragma once

#include <memory>
#include <optional>
#include <string>

#include "VexIMLib/Store/internal/Engine.h"

namespace vexim::store {

/// Writes messages as lines of JSON, a few at a time, so that other operations can run in between.
void exportLines(const std::shared_ptr<Engine>& engine, std::string path,
                 std::optional<VXIMConversationId> conversation, VXIMCountCompletion completion);

}  // namespace vexim::store
