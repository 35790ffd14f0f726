#include "Terminal.h"

// In a file of its own, because <term.h> defines common words as macros.
#include <curses.h>
#include <term.h>
#include <unistd.h>

namespace chat {

bool hasFullScreen(const char* type) {
    int error = 0;
    if (type == nullptr || *type == '\0' || setupterm(type, STDOUT_FILENO, &error) != OK)
        return false;
    const bool canMove = cursor_address != nullptr && clear_screen != nullptr;
    del_curterm(cur_term);
    return canMove;
}

std::string cursorOrder(int row, int column) {
    const char* const order = tiparm(cursor_address, row, column);
    return order == nullptr ? "" : order;
}

std::string restOfLineOrder() { return clr_eol == nullptr ? "" : clr_eol; }

}  // namespace chat
