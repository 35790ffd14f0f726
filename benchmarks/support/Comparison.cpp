#include "support/Comparison.h"

#include <algorithm>
#include <iostream>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "support/Selection.h"
#include "support/Table.h"

namespace vexim::bench {

namespace {

struct Comparison {
    std::string name;
    Body ours;
    Body peer;
    std::optional<double> limit;
};

std::vector<Comparison>& comparisons() {
    static std::vector<Comparison> all;
    return all;
}

/// Keeps the best repetition of each, because other load can only make it worse.
class Table final : public benchmark::BenchmarkReporter {
public:
    bool ReportContext(const Context&) override { return true; }
    void ReportRuns(const std::vector<Run>& runs) override {
        for (const auto& run : runs) {
            if (run.run_type != Run::RT_Iteration || run.error_occurred) continue;
            const double nanos =
                run.cpu_accumulated_time / static_cast<double>(run.iterations) * 1e9;
            auto [best, isFirst] = best_.emplace(run.run_name.function_name, nanos);
            if (!isFirst) best->second = std::min(best->second, nanos);
        }
    }
    void Finalize() override {
        for (const auto& [name, ownBody, peerBody, limit] : comparisons()) {
            const auto ours = best_.find(name + "/ours");
            const auto peer = best_.find(name + "/peer");
            if (ours == best_.end() || peer == best_.end()) continue;
            printRatio(name, ours->second, peer->second, "ns", limit);
        }
    }

private:
    std::map<std::string, double> best_;
};

}  // namespace

bool compare(const std::string& name, Body ours, Body peer, std::optional<double> limit) {
    comparisons().push_back({name, ours, peer, limit});
    return true;
}

namespace {

void registerAll() {
    for (const auto& [name, ours, peer, limit] : comparisons()) {
        if (const auto& asked = Selection::asked()) {
            if (asked->isList) Selection::list(name, 1);
            if (asked->row == name)
                benchmark::RegisterBenchmark(name.c_str(), asked->isOurs ? ours : peer)
                    ->Iterations(asked->rounds)
                    ->Repetitions(1);
        } else {
            benchmark::RegisterBenchmark((name + "/ours").c_str(), ours);
            benchmark::RegisterBenchmark((name + "/peer").c_str(), peer);
        }
    }
}

}  // namespace

}  // namespace vexim::bench

int main(int argc, char** argv) {
    // The two sides take turns several times, so that both run under the same load.
    std::vector<std::string> defaults = {argv[0], "--benchmark_repetitions=7",
                                         "--benchmark_enable_random_interleaving=true",
                                         "--benchmark_min_time=0.1"};
    std::vector<char*> arguments;
    for (auto& each : defaults) arguments.push_back(each.data());
    arguments.insert(arguments.end(), argv + 1, argv + argc);  // these override ours
    int count = static_cast<int>(arguments.size());
    benchmark::Initialize(&count, arguments.data());
    if (benchmark::ReportUnrecognizedArguments(count, arguments.data())) return 1;
    vexim::bench::registerAll();
    vexim::bench::Table table;
    benchmark::RunSpecifiedBenchmarks(&table);
    return 0;
}
