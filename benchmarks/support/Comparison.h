#pragma once

#include <benchmark/benchmark.h>

#include <optional>
#include <string>

namespace vexim::bench {

using Body = void (*)(benchmark::State&);

/// Measures `ours` and `peer` in one run and prints the CPU times and their ratio, which must not
/// exceed `limit` if there is one. Call it while the program's statics are made. The program needs
/// no main function:
///
///     const bool kJSON = vexim::bench::compare("JSON in", readOurs, readTheirs, 1.0);
bool compare(const std::string& name, Body ours, Body peer, std::optional<double> limit);

}  // namespace vexim::bench
