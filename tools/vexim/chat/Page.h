#pragma once

#include <vector>

#include "Conversation.h"
#include "Text.h"

namespace chat {

// Lays out a conversation as lines on the screen. Only the visible part is wrapped, so a long
// history costs no time.

/// The lines that fit into `height`. The anchor says which is the lowest; without one it is the
/// newest.
std::vector<Cells> linesOf(const Conversation& conversation, int width, int height);

/// Moves the view by `lines` (negative: up), at most until the first line is at the top. At the end
/// it removes the anchor, so that the view follows new entries. Returns whether the oldest entry is
/// in view, so that older ones should be read.
bool scroll(Conversation& conversation, int width, int height, int lines);

/// The lines of one entry. If it is the first of its day, the day comes first.
std::vector<Cells> linesOfEntry(const Conversation& conversation, std::size_t index, int width);

/// Shows the last entry, which must exist. If it is longer than the page, it is shown from its
/// first line.
void showFromItsStart(Conversation& conversation, int width, int height);

}  // namespace chat
