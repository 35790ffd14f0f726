#pragma once

#include <string>

#include "VexIMLib/Foundation/Exception.h"

namespace vexim::testing {

/// The reason of the exception that `call` raises, or "nothing".
template <class Call>
std::string raised(Call&& call) {
    try {
        call();
    } catch (const Exception& exception) {
        return exception.what();
    }
    return "nothing";
}

}  // namespace vexim::testing
