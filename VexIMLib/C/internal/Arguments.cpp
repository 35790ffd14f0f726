#include "VexIMLib/C/internal/Arguments.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <limits>

#include "VexIMLib/Foundation/Array.h"

namespace vexim::c {

namespace {

std::string_view trimmed(std::string_view text) {
    const auto begin = text.find_first_not_of(' ');
    return begin == text.npos ? std::string_view()
                              : text.substr(begin, text.find_last_not_of(' ') - begin + 1);
}

bool isId(const Value& value) {
    if (const auto text = value.asStringView()) return !text->empty();
    return value.kind() == Value::Kind::Integer;
}

template <class Test>
bool isArrayOf(const Value& value, Test test) {
    const auto* array = value.asArray();
    return array && std::all_of(array->begin(), array->end(), test);
}

std::string described(std::string_view type) {
    return type == "id" ? "a nonempty string or an integer" : "of type " + std::string(type);
}

std::string quoted(std::string_view name) { return "\"" + std::string(name) + "\""; }

}  // namespace

std::vector<Parameter> parseParameters(std::string_view declaration) {
    std::vector<Parameter> parameters;
    while (!declaration.empty()) {
        const auto end = std::min(declaration.find(','), declaration.size());
        const auto one = declaration.substr(0, end);
        const auto colon = one.find(':');
        auto type = trimmed(one.substr(colon + 1));
        const bool isOptional = type.ends_with('?');
        if (isOptional) type.remove_suffix(1);
        parameters.push_back({trimmed(one.substr(0, colon)), type, isOptional});
        declaration.remove_prefix(std::min(end + 1, declaration.size()));
    }
    return parameters;
}

bool hasType(const Value& value, std::string_view type) {
    if (type == "any") return true;
    if (type == "id") return isId(value);
    if (type == "ids") return isArrayOf(value, isId);
    if (type == "string" || type == "conversationKind") return value.isString();
    if (type == "strings")
        return isArrayOf(value, [](const Value& element) { return element.isString(); });
    if (type == "boolean") return value.isBoolean();
    if (type == "number") return value.isNumber() && !value.isBoolean();
    if (type == "integer") return value.kind() == Value::Kind::Integer;
    if (type == "int32")
        return value.kind() == Value::Kind::Integer &&
               value.integer() == static_cast<std::int32_t>(value.integer());
    // "object", "newMessage", "address", "conversationId", "storePosition"
    return value.isDictionary();
}

std::optional<Problem> findProblem(const std::vector<Parameter>& parameters,
                                   const Dictionary& arguments) {
    for (const auto& parameter : parameters) {
        const Value& value = arguments.get(parameter.name);
        if (value.isNilOrNull()) {
            if (parameter.isOptional) continue;
            return Problem{InterfaceError::MissingArgument,
                           "The argument " + quoted(parameter.name) + " is missing."};
        }
        if (!hasType(value, parameter.type)) {
            return Problem{InterfaceError::WrongArgument,
                           quoted(parameter.name) + " must be " + described(parameter.type) + "."};
        }
    }
    for (const auto [name, value] : arguments) {
        if (name == "@op" || name == "@extra" || name == "@timeout") continue;
        const auto isMeant = [name = name](const Parameter& parameter) {
            return parameter.name == name;
        };
        if (std::ranges::none_of(parameters, isMeant)) {
            return Problem{InterfaceError::UnknownArgument, quoted(name) + " is unknown."};
        }
    }
    return std::nullopt;
}

}  // namespace vexim::c
