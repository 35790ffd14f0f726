#pragma once

#include <stdexcept>
#include <string>

#include "VexIMLib/Foundation/Dictionary.h"
#include "VexIMLib/Foundation/Value.h"

namespace vexim::testing::fake {

/// One of the errors that the service answers: its "errorCode", the HTTP status over REST and the
/// default text.
struct Refusal {
    int code;
    int status;
    const char* text;
};

namespace refusal {
inline constexpr Refusal malformedBody{1001, 400, "The body is not a JSON object or array."};
inline constexpr Refusal invalidValue{1002, 400, "A value is missing or has the wrong type."};
inline constexpr Refusal unknownPath{1004, 404, "There is no such path."};
inline constexpr Refusal unknownMethod{1005, 405, "This path does not allow that method."};
inline constexpr Refusal unsigned_{1101, 401, "The request is not signed."};
inline constexpr Refusal badSignature{1102, 401, "The signature does not match."};
inline constexpr Refusal oldSignature{1103, 401,
                                      "The signature is too old or its time is in the future."};
inline constexpr Refusal unknownApp{1104, 403, "There is no such application."};
inline constexpr Refusal wrongCredentials{1105, 401, "The credentials match no user."};
inline constexpr Refusal unknownUser{1201, 404, "There is no such user."};
inline constexpr Refusal notFriends{1202, 404, "These two users are not friends."};
inline constexpr Refusal unknownGroup{1301, 404, "There is no such group."};
inline constexpr Refusal unknownRoom{1401, 404, "There is no such room."};
inline constexpr Refusal notMember{1501, 403, "The sender is not a member."};
inline constexpr Refusal unknownPassenger{1601, 404, "There is no such passenger."};
inline constexpr Refusal unknownAttribute{1701, 404, "There is no such attribute."};
inline constexpr Refusal unknownFile{1801, 404, "There is no such file."};
inline constexpr Refusal badRange{1802, 416, "The range is outside the file."};
}  // namespace refusal

/// What a client is told, and a test that asks for what cannot be.
class ServiceError final : public std::invalid_argument {
public:
    explicit ServiceError(const Refusal& refusal, const std::string& detail = {})
        : std::invalid_argument(detail.empty() ? refusal.text : detail),
          refusal_(refusal) {}
    int status() const noexcept { return refusal_.status; }
    /// The form in which it goes over the wire.
    Dictionary json() const { return {{"errorCode", refusal_.code}, {"errorMessage", what()}}; }

private:
    const Refusal& refusal_;
};

/// Throws unless `condition` holds.
inline void must(bool condition, const Refusal& refusal, const std::string& detail = {}) {
    if (!condition) throw ServiceError(refusal, detail);
}

}  // namespace vexim::testing::fake
