#pragma once

#include <benchmark/benchmark.h>

#include <optional>
#include <string>

namespace vexim::bench {

using Body = void (*)(benchmark::State&);

/// Measures `ours` against `peer` in one run and prints the CPU times and their ratio, which is to
/// stay within `limit`, if there is one. To be called while the program's statics are made; the
/// program needs no main of its own:
///
///     const bool kJSON = vexim::bench::compare("JSON in", readOurs, readTheirs, 1.0);
bool compare(const std::string& name, Body ours, Body peer, std::optional<double> limit);

}  // namespace vexim::bench
