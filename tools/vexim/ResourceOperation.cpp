#include "ResourceOperation.h"

#include <stdexcept>

#include "Login.h"
#include "Operation.h"

using vexim::Dictionary;
using vexim::Value;

std::function<int(const Given&)> running(Acts acts, ResourceOperation operation,
                                         std::function<Value(const Value&)> shown) {
    return [acts, operation = std::move(operation), shown = std::move(shown)](const Given& given) {
        // Requests use the configuration of the client that was made last.
        const auto client = given.account.makeClient();
        const auto me =
            acts == Acts::ForAUser ? userIdOf(client, given.credentials) : std::string();
        return perform(
            *client, given.isJSON ? Output::JSON : Output::Text,
            [&](Done done) { operation(given, me, std::move(done)); }, shown);
    };
}

Dictionary entriesOf(const std::vector<std::string>& words) {
    Dictionary entries;
    for (const auto& word : words) {
        const auto equals = word.find('=');
        if (equals == std::string::npos || equals == 0)
            throw std::invalid_argument("expected KEY=VALUE, not " + word);
        const auto text = word.substr(equals + 1);
        const auto json = vexim::parseJSON(text, vexim::JSONFragments::Allow);
        entries.set(word.substr(0, equals), json.error ? Value(text) : json.value);
    }
    return entries;
}

Value recordOf(const VXIMFriendInfo& info) {
    Dictionary record;
    record.setOrRemove("id", info.uid());
    record.set("online", info.online());
    if (info.ts() != 0) record.set("ts", info.ts());
    record.setOrRemove("from", info.from());
    record.setOrRemove("to", info.to());
    return record;
}
Value recordOf(const VXIMRuntimeObject& object) { return object.dictionaryRepresentation(); }
Value recordOf(VXIMMessage& message) { return message.dictionaryRepresentation(); }
