#pragma once

#include <cstdio>
#include <cstdlib>
#include <optional>
#include <string>

namespace vexim::bench {

/// What scripts/bench_instructions.py asks a program to do, in the variable VEXIM_BENCH. "list"
/// prints its rows; "ours 3 live: a message sent", for example, only does three rounds of one side
/// of that row.
struct Selection {
    bool isList = false;
    bool isOurs = false;
    int rounds = 0;
    std::string row;

    static const std::optional<Selection>& asked() {
        static const std::optional<Selection> selection = [] {
            const char* text = std::getenv("VEXIM_BENCH");
            if (text == nullptr) return std::optional<Selection>();
            Selection parsed;
            char side[8] = {};
            int row = 0;
            parsed.isList = std::sscanf(text, "%7s %d %n", side, &parsed.rounds, &row) < 2;
            parsed.isOurs = std::string(side) == "ours";
            parsed.row = text + row;
            return std::optional(parsed);
        }();
        return selection;
    }

    /// `operations` in each round.
    static void list(const std::string& name, double operations) {
        std::printf("%s\t%.0f\n", name.c_str(), operations);
    }

    /// True if the program was asked for one row or for the list, and this has done what concerns
    /// the row `name`.
    template <class Ours, class Peer>
    static bool handles(const std::string& name, double operations, Ours& ours, Peer& peer) {
        if (!asked()) return false;
        if (asked()->isList) list(name, operations);
        for (int round = 0; asked()->row == name && round < asked()->rounds; ++round)
            asked()->isOurs ? ours() : peer();
        return true;
    }
};

}  // namespace vexim::bench
