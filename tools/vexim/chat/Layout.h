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

/// What the screen shows: its rows from the top, none wider than the screen, and where the cursor
/// stands.
struct Frame {
    std::vector<Cells> rows;
    int cursorRow = 0;
    int cursorColumn = 0;
};

/// The state of the session as it is written into its line.
struct StatusLine {
    std::string text;
    bool isAlert = false;
};

/// From the top: the conversation's title, its page with the list of conversations beside it, the
/// session's state, the line being typed. On a small screen the list, then the title, then the
/// state give way. A state that does not fit in a row takes as many as it needs, up to a third of
/// the screen.
Frame draw(const Roster& roster, const StatusLine& status, const EditLine& line, Size size);

/// How large the conversation's part of the screen is: a long state takes some of it.
Size pageSize(Size screen, const StatusLine& status);

}  // namespace chat
