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

/// What a resource command does. `me` is the user's id; empty where the command needs none.
using ResourceOperation = std::function<void(const Given& given, const std::string& me, Done done)>;

/// Whether a command acts for a user.
enum class Acts { ForAUser, ForNobody };

/// A command's `run`: starts the operation and prints what it gave. `shown` makes of a result what
/// people see; empty: the result itself.
std::function<int(const Given&)> running(
    Acts acts, ResourceOperation operation,
    std::function<vexim::Value(const vexim::Value&)> shown = {});

/// "city=Oslo" as an entry. A value that is JSON is taken as such (31, true, ["a"]), anything else
/// as text. Throws std::invalid_argument where there is no "=".
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

/// Ends with `result()` when the operation succeeded.
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

/// Ends with the records of what was found or read.
inline auto withRecords(Done done) {
    return [done](const auto& objects, vexim::ErrorPtr error) {
        done(error ? vexim::Value() : recordsOf(objects), error);
    };
}
