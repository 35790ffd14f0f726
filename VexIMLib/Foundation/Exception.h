#pragma once

#include <exception>
#include <string>

#include "VexIMLib/Foundation/Export.h"

namespace vexim {

// The fixed names under which programmers' mistakes are raised.
inline constexpr const char* kInvalidArgumentException = "NSInvalidArgumentException";
inline constexpr const char* kInternalInconsistencyException = "NSInternalInconsistencyException";
inline constexpr const char* kUnknownKeyException = "NSUnknownKeyException";
inline constexpr const char* kRangeException = "NSRangeException";

/// A programmer's mistake, raised on the caller's thread before anything else happens.
/// Failures of the world (network, files, server answers) are never exceptions but `Error`s.
class VEXIM_EXPORT Exception : public std::exception {
public:
    /// `name` is one of the constants above, `reason` a sentence.
    Exception(std::string name, std::string reason);
    ~Exception() override;

    // As given.
    const std::string& name() const noexcept { return name_; }
    const std::string& reason() const noexcept { return reason_; }

    /// "name: reason"
    const char* what() const noexcept override { return what_.c_str(); }

private:
    std::string name_;
    std::string reason_;
    std::string what_;
};

}  // namespace vexim
