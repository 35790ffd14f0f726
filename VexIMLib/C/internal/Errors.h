#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "VexIMLib/Foundation/Error.h"

namespace vexim::c {

/// The domain of the errors that the C interface adds, with the codes below. docs/c-interface.md
/// documents them.
inline constexpr const char* kInterfaceErrorDomain = "VXIMInterfaceErrorDomain";
enum class InterfaceError : std::int64_t {
    NotAnObject = 1,
    UnknownOperation = 2,
    MissingArgument = 3,
    WrongArgument = 4,
    UnknownArgument = 5,
    ClientGone = 6,
    TooMuch = 7,
    Raised = 8,
    Nothing = 9,
    Abandoned = 10,
    WithoutStore = 11,
    NoSuchStore = 12,
};

/// What is wrong with a request.
struct Problem {
    InterfaceError code;
    std::string description;
};

/// Thrown while an operation is prepared; becomes its answer.
struct Refusal {
    Problem problem;
};

// An error as JSON: {"domain":…,"code":…,"description":…,"userInfo":…}.
std::string errorBody(const Error& error);
std::string errorBody(InterfaceError code, std::string description);
inline std::string errorBody(const Problem& problem) {
    return errorBody(problem.code, problem.description);
}

}  // namespace vexim::c
