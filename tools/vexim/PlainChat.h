#pragma once

#include <memory>

#include "CommandTable.h"

class VXIMConversations;

/// A chat line by line, for scripts and simple terminals. Lines from standard input are sent or are
/// commands; events are printed.
int runPlainChat(const std::shared_ptr<VXIMConversations>& conversations, const Given& given);
