#pragma once

namespace chat {

/// Whether a terminal of that type (TERM; may be nullptr) is known and can place its cursor.
bool hasFullScreen(const char* type);

}  // namespace chat
