#pragma once

#include <cstdint>
#include <string>

#include "VexIMLib/Foundation/Value.h"

/// Formats a result for people: a list of records as a table with a heading, a record as two
/// columns, any other list with one line for each element. Each line has a line end. Text from
/// others cannot break out of its line.
std::string tableOf(const vexim::Value& value);
