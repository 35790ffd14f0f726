#pragma once

#include <string>

#include "CommandLine.h"

/// The manual page, in mdoc.
std::string manualOf(const CommandTable& table);
