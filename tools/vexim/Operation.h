#pragma once

#include <functional>

#include "VexIMLib/VXIMCompletions.h"

class VXIMClient;

/// How a result is printed.
enum class Output { Text, JSON };

/// One line on standard output.
void printJSON(const vexim::Value& value);

/// Starts `operation`, runs the main queue until it has ended (30 seconds at most) and prints what
/// it gave: as JSON, or as a table of what `shown` makes of it (empty: of itself). Standard error
/// hears that another attempt is made. `client` is the one whose configuration counts. 0 on
/// success; throws std::runtime_error after an error or without an answer.
int perform(const VXIMClient& client, Output output,
            const std::function<void(VXIMResultCompletion)>& operation,
            const std::function<vexim::Value(const vexim::Value&)>& shown = {});
