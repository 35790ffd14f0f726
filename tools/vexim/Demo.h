#pragma once

#include "CommandTable.h"

class Stage;

/// "demo": tells the library's whole story with two users of the local development service, checks
/// each step, and prints it. Ends within 30 seconds. 0 when every step held.
CommandSpec demoCommand();

// The chapters, in the order in which they are told; each stands on the one before. False when the
// story cannot go on.
bool tellLogin(Stage& stage);
bool tellChat(Stage& stage);
bool tellAttachments(Stage& stage);
bool tellResources(Stage& stage);
bool tellPauseAndResume(Stage& stage);
bool tellLogout(Stage& stage);
