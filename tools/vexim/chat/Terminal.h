#pragma once

#include <string>

namespace chat {

/// Whether this type of terminal (TERM; may be nullptr) is known and can move its cursor.
bool hasFullScreen(const char* type);

/// The terminal's sequences for moving the cursor, counted from 0, and for clearing the rest of the
/// line.
std::string cursorOrder(int row, int column);
std::string restOfLineOrder();

}  // namespace chat
