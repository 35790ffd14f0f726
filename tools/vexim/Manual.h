#pragma once

#include <string>

#include "CommandTable.h"

/// The manual page, in mdoc.
std::string manualOf(const CommandTable& table);
