#pragma once

#include <vector>

#include "Conversation.h"
#include "Text.h"

namespace chat {

// A conversation as lines on the screen. Only what is looked at is wrapped, so the length of a
// history costs nothing.

/// The lines that fit into `height`, the lowest where the anchor says, else the newest.
std::vector<Cells> linesOf(const Conversation& conversation, int width, int height);

/// Moves the view by `lines` (up when negative), no further than the first line stands at the top.
/// At the end the anchor goes, and the view follows new entries. Whether it has come to the oldest
/// entry, so that older ones are wanted.
bool scroll(Conversation& conversation, int width, int height, int lines);

/// One entry's lines, with the day above it when it is the first of its day.
std::vector<Cells> linesOfEntry(const Conversation& conversation, std::size_t index, int width);

/// Shows the last entry, which must be there, from its first line on where it is longer than the
/// page.
void showFromItsStart(Conversation& conversation, int width, int height);

}  // namespace chat
