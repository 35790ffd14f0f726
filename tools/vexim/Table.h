#pragma once

#include <cstdint>
#include <string>

#include "VexIMLib/Foundation/Value.h"

/// A result for people: a list of records as a table with a heading, a record as two columns, any
/// other list with a line for each element, anything else as it is. Each line has its end. Text of
/// others cannot break out of its line.
std::string tableOf(const vexim::Value& value);
