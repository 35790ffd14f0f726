// Replaces the store's commands in a build without VexIMLib::Store.
#include <stdexcept>

#include "StoreCommands.h"

namespace {

CommandSpec missing(const std::string& name) {
    return {name,
            "(not in this build, which has no store)",
            {{"WORD", "(not in this build)", Count::Any}},
            {storeOption()},
            [name](const Given&) -> int {
                throw std::invalid_argument("this build has no store, which " + name +
                                            " needs; it takes SQLite and VEXIM_BUILD_STORE=ON");
            }};
}

}  // namespace

CommandSpec chatCommand() { return missing("chat"); }
std::vector<CommandSpec> storeCommands() { return {missing("search"), missing("export")}; }
