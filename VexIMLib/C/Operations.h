#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "VexIMLib/C/Arguments.h"
#include "VexIMLib/C/Handlers.h"

namespace vexim::c {

/// A row of the table in Operations.cpp. scripts/c_interface.py makes the JSON Schema and the table of docs/c-interface.md of it.
struct Operation {
    std::string_view name;
    std::string_view parameters;  // as `parseParameters` reads it
    std::string_view result;      // what the answer holds, for people and the schema
    std::string_view doc;         // one sentence or two
    handlers::Handler* run;
};

/// What an immediate operation must have.
enum class Needs { Nothing, Handle, Client };

/// What `vexim_execute` does. Any thread.
struct ImmediateOperation {
    std::string_view name;
    std::string_view parameters;
    std::string_view result;
    std::string_view doc;
    Needs needs;
    handlers::ImmediateHandler* run;
};

// What a configuration may hold: what is the client's, and the options of the connection.
extern const std::string_view kConfiguration;
extern const std::string_view kConnectionOptions;
// What a message and a target in a request may hold.
extern const std::string_view kMessage;
extern const std::string_view kTarget;

template <class Row>
struct Found {
    const Row* row = nullptr;  // nullptr when there is none of that name
    const std::vector<Parameter>* parameters = nullptr;
};
/// For people: that nothing has this name.
std::string unknownOperation(std::optional<std::string_view> name);
Found<Operation> findOperation(std::string_view name);
Found<ImmediateOperation> findImmediateOperation(std::string_view name);

}  // namespace vexim::c
