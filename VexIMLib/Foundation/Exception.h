#pragma once

#include <exception>
#include <string>

#include "VexIMLib/Foundation/Export.h"

namespace vexim {

// The names of the exceptions that the library raises.

/// An argument is nil, malformed, or of the wrong type.
inline constexpr const char* kInvalidArgumentException = "NSInvalidArgumentException";
/// The program does something that a correct one never does.
inline constexpr const char* kInternalInconsistencyException = "NSInternalInconsistencyException";
/// A key path leads through something that is not a dictionary.
inline constexpr const char* kUnknownKeyException = "NSUnknownKeyException";
/// An index is beyond the end.
inline constexpr const char* kRangeException = "NSRangeException";

/// A programmer's mistake. It is raised on the caller's thread before anything else happens.
/// Failures of the network, of files or of the server are never exceptions; they are `Error`s.
/// It means that the program must be corrected, so there is normally no reason to catch it.
///
///     try {
///         client->sendMessageToFriend(message, nullptr, done);  // nil is not an id
///     } catch (const vexim::Exception& mistake) {
///         std::cerr << mistake.what();
///     }
class VEXIM_EXPORT Exception : public std::exception {
public:
    /// `name` is one of the constants above, `reason` a sentence.
    Exception(std::string name, std::string reason);
    ~Exception() override;

    // As given. The name tells programs what happened, the reason tells people.
    const std::string& name() const noexcept { return name_; }
    const std::string& reason() const noexcept { return reason_; }

    /// "name: reason", in UTF-8.
    const char* what() const noexcept override { return what_.c_str(); }

private:
    std::string name_;
    std::string reason_;
    std::string what_;
};

}  // namespace vexim
