#pragma once

#include "VexIMLib/Foundation/Error.h"
#include "VexIMLib/Foundation/Export.h"

namespace vexim {

/// The error that a completion is not given. Some operations call back as after a success although
/// a part of them failed. While such a completion runs, one of these says what failed: the async
/// styles then fail with it. Main thread only.
///
///     const vexim::UntoldError untold(uploadError);
///     completion(true, nullptr);
class VEXIM_EXPORT UntoldError {
public:
    /// Holds until it is destroyed; one inside another wins. nullptr: nothing is kept back.
    explicit UntoldError(ErrorPtr error);
    ~UntoldError();
    UntoldError(const UntoldError&) = delete;
    UntoldError& operator=(const UntoldError&) = delete;

    /// What the completion that runs now is not given; nullptr on any other thread and when no
    /// completion runs.
    static ErrorPtr current();

private:
    ErrorPtr outer_;
};

}  // namespace vexim
