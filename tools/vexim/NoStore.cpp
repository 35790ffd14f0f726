// In a build without VexIMLib::Store.
#include <CLI/CLI.hpp>
#include <stdexcept>

#include "StoreCommands.h"

void addStoreCommands(CLI::App& app, Account&, Credentials&, Peer&, std::function<int()>& chosen) {
    for (const char* const name : {"chat", "search", "export"}) {
        auto& command = *app.add_subcommand(name, "(not in this build, which has no store)");
        command.allow_extras();
        command.callback([&chosen, name] {
            chosen = [name]() -> int {
                throw std::invalid_argument("this build has no store, which " + std::string(name) +
                                            " needs; it takes SQLite and VEXIM_BUILD_STORE=ON");
            };
        });
    }
}
