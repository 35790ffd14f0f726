#pragma once

#include <string>

#include "CommandTable.h"

/// The manual page in mdoc format.
std::string manualOf(const CommandTable& table);
