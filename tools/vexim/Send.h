#pragma once

#include "CommandTable.h"

class VXIMMessage;

/// "send": logs in, sends one message (with a progress bar for a file), waits until the service has
/// sent it back, and logs out.
CommandSpec sendCommand();
