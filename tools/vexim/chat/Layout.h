#pragma once

#include <vector>

#include "EditLine.h"
#include "Roster.h"
#include "Text.h"

namespace chat {

struct Size {
    int columns = 80;
    int rows = 24;
};

/// What the screen shows: its rows from the top, none wider than the screen, and the position of
/// the cursor.
struct Frame {
    std::vector<Cells> rows;
    int cursorRow = 0;
    int cursorColumn = 0;
};

/// The session's state, for the status line.
struct StatusLine {
    std::string text;
    bool isAlert = false;
};

/// From the top: the conversation's title, its page with the list of conversations beside it, the
/// session's state, and the line being typed. If the screen is too small, it leaves out the list,
/// then the title, then the state. A long state takes several rows, up to a third of the screen.
Frame draw(const Roster& roster, const StatusLine& status, const EditLine& line, Size size);

/// The size of the conversation's part of the screen, which is smaller if the state is long.
Size pageSize(Size screen, const StatusLine& status);

}  // namespace chat
