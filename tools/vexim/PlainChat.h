#pragma once

#include <memory>

#include "CommandTable.h"

class VXIMConversations;

/// A chat line by line, for scripts and simple terminals: what is read from standard input is sent
/// or obeyed, what happens is printed.
int runPlainChat(const std::shared_ptr<VXIMConversations>& conversations, const Given& given);
