#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "VexIMLib/C/internal/Errors.h"
#include "VexIMLib/Foundation/Dictionary.h"
#include "VexIMLib/Foundation/Value.h"

namespace vexim::c {

/// One parameter of an operation, as the table declares it: "friendId: id", "members: ids?".
struct Parameter {
    std::string_view name;
    std::string_view type;
    bool isOptional;
};

/// The parameters in a declaration such as "friendId: id, limit: int32?".
std::vector<Parameter> parseParameters(std::string_view declaration);

/// Whether a value has this type of the table.
bool hasType(const Value& value, std::string_view type);

/// What is wrong with the arguments: one is missing, has the wrong type, or is unknown. "@op",
/// "@extra" and "@timeout" are always allowed.
std::optional<Problem> findProblem(const std::vector<Parameter>& parameters,
                                   const Dictionary& arguments);

}  // namespace vexim::c
