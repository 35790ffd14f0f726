#pragma once

#include <string>

namespace chat {

/// Whether a terminal of that type (TERM; may be nullptr) is known and can place its cursor.
bool hasFullScreen(const char* type);

/// The terminal's order to put the cursor there, counted from 0; and the one to empty the rest of
/// the line.
std::string cursorOrder(int row, int column);
std::string restOfLineOrder();

}  // namespace chat
