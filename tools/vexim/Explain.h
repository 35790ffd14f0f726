#pragma once

#include <string>

#include "VexIMLib/Foundation/Error.h"

/// An error for a person: what the service or the platform says about it, what to check, and its
/// domain and code. Nothing in it is obeyed by a terminal.
std::string explain(const vexim::ErrorPtr& error);
