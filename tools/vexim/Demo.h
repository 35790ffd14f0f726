#pragma once

#include "CommandTable.h"

class Stage;

/// "demo": goes through the whole library with two users of the local development service, checks
/// each step and prints it. Takes at most 30 seconds. The status is 0 if all steps succeeded.
CommandSpec demoCommand();

// The chapters, in order. Each builds on the one before. They return false if the story cannot go
// on.
bool tellLogin(Stage& stage);
bool tellChat(Stage& stage);
bool tellAttachments(Stage& stage);
bool tellResources(Stage& stage);
bool tellPauseAndResume(Stage& stage);
bool tellLogout(Stage& stage);
