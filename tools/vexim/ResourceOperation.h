#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "CommandTable.h"
#include "VexIMLib/VexIMLib.h"

using Done = VXIMResultCompletion;

/// What a resource command does. `me` is the user's id, or empty if the command needs none.
using ResourceOperation = std::function<void(const Given& given, const std::string& me, Done done)>;

/// Whether a command needs a user.
enum class Acts { ForAUser, ForNobody };

/// Makes a command's `run`: it starts the operation and prints the result. `shown` prepares the
/// result for people; if it is empty, the result itself is shown.
std::function<int(const Given&)> running(
    Acts acts, ResourceOperation operation,
    std::function<vexim::Value(const vexim::Value&)> shown = {});

/// Reads words like "city=Oslo" as entries. A value that is JSON (31, true, ["a"]) keeps its type;
/// any other is text. Throws std::invalid_argument if a word has no "=".
vexim::Dictionary entriesOf(const std::vector<std::string>& words);

vexim::Value recordOf(const VXIMFriendInfo& info);
vexim::Value recordOf(const VXIMRuntimeObject& object);
vexim::Value recordOf(VXIMMessage& message);

template <class T>
vexim::Value recordsOf(const std::optional<std::vector<std::shared_ptr<T>>>& objects) {
    vexim::Array records;
    if (objects) {
        for (const auto& object : *objects) records.append(recordOf(*object));
    }
    return records;
}

/// A completion that passes on `result()` if the operation succeeded.
template <class Result>
VXIMBooleanCompletion then(Done done, Result result) {
    return [done, result](bool succeeded, vexim::ErrorPtr error) {
        if (!succeeded && !error)
            error =
                vexim::Error::withDescription("vexim", 1, "the service's answer makes no sense");
        done(succeeded ? vexim::Value(result()) : vexim::Value(), std::move(error));
    };
}

inline VXIMBooleanCompletion onlySuccess(Done done) {
    return then(std::move(done), [] { return vexim::Value(); });
}

/// A completion that passes on the records that were found or fetched.
inline auto withRecords(Done done) {
    return [done](const auto& objects, vexim::ErrorPtr error) {
        done(error ? vexim::Value() : recordsOf(objects), error);
    };
}
