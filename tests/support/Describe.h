#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "VexIMLib/Foundation/Error.h"
#include "VexIMLib/Foundation/JSON.h"
#include "VexIMLib/VexIMLib.h"

// State as one line of text, so that a test compares everything at once.

namespace vexim::testing {

inline std::string json(const Value& value) {
    if (value.isNil()) return "nil";
    const JSONText text = writeJSON(value, JSONFragments::Allow);
    return text.error ? value.description() : text.text;
}

inline Dictionary dictionaryFrom(std::string_view text) {
    const JSONResult result = parseJSON(text);
    if (!result.value.isDictionary())
        throw std::invalid_argument("no JSON object: " + std::string(text));
    return *result.value.asDictionary();
}

/// "domain code", or "ok".
inline std::string describe(const ErrorPtr& error) {
    return error ? error->domain() + " " + std::to_string(error->code()) : "ok";
}

/// "user u1" and the like; every id that is set is shown.
inline std::string describe(const VXIMMessageTarget& target) {
    std::string text = std::to_string(target.type());
    if (!target.userId().isNil()) text += " user " + target.userId().description();
    if (!target.groupId().isNil()) text += " group " + target.groupId().description();
    if (!target.roomId().isNil()) text += " room " + target.roomId().description();
    return text;
}

inline std::string describe(const VXIMMessage& message) {
    return "from " + describe(*message.sender()) + ", to " + describe(*message.receiver()) + ": " +
           message.text().value_or("nil");
}

}  // namespace vexim::testing
