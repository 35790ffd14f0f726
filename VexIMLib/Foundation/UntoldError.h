#pragma once

#include "VexIMLib/Foundation/Error.h"
#include "VexIMLib/Foundation/Export.h"

namespace vexim {

/// An error that a completion does not receive. Some operations report success although a part of
/// them failed. While such a completion runs, this object holds the error, and the async styles
/// fail with it. Main thread only.
///
///     const vexim::UntoldError untold(uploadError);
///     completion(true, nullptr);
class VEXIM_EXPORT UntoldError {
public:
    /// Sets the current error as long as this object lives. If they are nested, the inner one is
    /// used. nullptr means no error.
    explicit UntoldError(ErrorPtr error);
    ~UntoldError();
    UntoldError(const UntoldError&) = delete;
    UntoldError& operator=(const UntoldError&) = delete;

    /// The error that the running completion does not receive; nullptr if there is none, and on any
    /// other thread.
    static ErrorPtr current();

private:
    ErrorPtr outer_;
};

}  // namespace vexim
