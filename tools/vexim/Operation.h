#pragma once

#include <functional>

#include "VexIMLib/VXIMCompletions.h"

/// How a result is printed.
enum class Output { Text, JSON };

/// Starts `operation`, runs the main queue until it has ended (30 seconds at most) and prints what it gave, or its error on
/// standard error. 0 on success, 1 after an error or without an answer.
int perform(Output output, const std::function<void(VXIMResultCompletion)>& operation);
