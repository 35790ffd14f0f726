#pragma once

#include <functional>

#include "VexIMLib/VXIMCompletions.h"

class VXIMClient;

/// How to print results.
enum class Output { Text, JSON };

/// Prints one line to standard output.
void printJSON(const vexim::Value& value);

/// Starts `operation`, runs the main queue until it has ended (30 seconds at most) and prints the
/// result: as JSON, or as a table. `shown` prepares the result for the table; if it is empty, the
/// result itself is shown. Before another attempt it prints a note to standard error. `client`
/// provides the configuration. Returns 0 on success; throws std::runtime_error after an error or if
/// no answer comes.
int perform(const VXIMClient& client, Output output,
            const std::function<void(VXIMResultCompletion)>& operation,
            const std::function<vexim::Value(const vexim::Value&)>& shown = {});
