#include "Terminal.h"

// By itself, because <term.h> makes macros of everyday words.
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

}  // namespace chat
