#pragma once

#include <cstdint>
#include <stdexcept>
#include <string>
#include <string_view>

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

/// A field of a record: one that REST answers, or one whose kind is checked in requests.
enum class FieldRole : std::uint8_t { answered, given };
struct Field {
    FieldRole role;
    std::string_view name;
    std::string_view kind;  // ends with "?" if the field may be missing
};

}  // namespace vexim::testing::fake

// CMake makes it from service/interface.json, which the service reads too.
#include <vexim_service_interface.h>

namespace vexim::testing::fake {

/// `sentence` with `name` in place of its "%".
inline std::string named(std::string sentence, std::string_view name) {
    return sentence.replace(sentence.find('%'), 1, name);
}

/// Becomes the answer to a client. A test that asks for something impossible gets it as an
/// exception.
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
