#pragma once

#include <string>

#include "VexIMLib/Foundation/Error.h"

/// Explains an error to a person: what happened, what to check, and the error's domain and code.
/// Control sequences are removed, so a terminal can show it safely.
std::string explain(const vexim::ErrorPtr& error);
