#pragma once

#include <functional>

#include "VexIMLib/VXIMCompletions.h"

class VXIMClient;

/// How a result is printed.
enum class Output { Text, JSON };

/// Starts `operation`, runs the main queue until it has ended (30 seconds at most) and prints what
/// it gave, or its error on standard error, which also hears that another attempt is made. `client`
/// is the one whose configuration counts. 0 on success, 1 after an error or without an answer.
int perform(const VXIMClient& client, Output output,
            const std::function<void(VXIMResultCompletion)>& operation);
