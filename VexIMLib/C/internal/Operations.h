#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "VexIMLib/C/internal/Arguments.h"
#include "VexIMLib/C/internal/Handlers.h"

namespace vexim::c {

/// A row of the table in Operations.cpp. scripts/c_interface.py makes the JSON Schema and the table
/// of docs/c-interface.md from it.
struct Operation {
    std::string_view name;
    std::string_view parameters;  // as `parseParameters` reads it
    std::string_view result;      // what the answer contains, for people and the schema
    std::string_view doc;         // one sentence or two
    handlers::Handler* run;
};

/// What an immediate operation needs.
enum class Needs { Nothing, Handle, Client };

/// What `vexim_execute` does. Call from any thread.
struct ImmediateOperation {
    std::string_view name;
    std::string_view parameters;
    std::string_view result;
    std::string_view doc;
    Needs needs;
    handlers::ImmediateHandler* run;
};

// The fields of a configuration: the client's, and the connection's options.
extern const std::string_view kConfiguration;
extern const std::string_view kConnectionOptions;
// The fields of a message and of a target in a request.
extern const std::string_view kMessage;
extern const std::string_view kTarget;

template <class Row>
struct Found {
    const Row* row = nullptr;  // nullptr if no operation has this name
    const std::vector<Parameter>* parameters = nullptr;
};
/// The error for an unknown name, or for one that this library does not have.
Problem unknownOperation(std::optional<std::string_view> name);
/// Rows by name.
template <class Row>
class Table {
public:
    template <std::size_t N>
    explicit Table(const Row (&rows)[N]) {
        for (const Row& row : rows)
            rows_.emplace(row.name, Prepared{&row, parseParameters(row.parameters)});
    }
    Found<Row> find(std::string_view name) const {
        const auto found = rows_.find(name);
        if (found == rows_.end()) return {};
        return {found->second.row, &found->second.parameters};
    }

private:
    struct Prepared {
        const Row* row;
        std::vector<Parameter> parameters;
    };
    std::unordered_map<std::string_view, Prepared> rows_;
};

Found<Operation> findOperation(std::string_view name);
Found<ImmediateOperation> findImmediateOperation(std::string_view name);

// The store's rows: in Store/StoreOperations.cpp for the library that has it, in WithoutStore.cpp
// for the other one.
extern const bool kHasStore;
Found<Operation> findStoreOperation(std::string_view name);

}  // namespace vexim::c
