// Handling a request, and the JSON forms of records. RestPaths.cpp has the paths.
#include "VexIMLib/Testing/internal/Rest.h"

#include <cmath>
#include <limits>
#include <span>
#include <stdexcept>
#include <utility>

#include "VexIMLib/Foundation/Clock.h"
#include "VexIMLib/Foundation/JSON.h"
#include "VexIMLib/Testing/internal/Search.h"

namespace vexim::testing::fake {

namespace {

constexpr double kMaxSignatureAge = 600;  // seconds, either way
constexpr std::size_t kPage = 20;

/// The JSON object or array in a body; nil if there is no body. Throws if it is something else.
Value bodyOf(const FakeService::Request& request) {
    if (request.body.empty()) return nullptr;
    const auto type = request.headers.get("content-type").asStringView().value_or("");
    Value body = type.starts_with("application/json") ? request.json() : Value();
    must(body.isDictionary() || body.isArray(), errors::malformedBody);
    return body;
}

/// `values`. Throws unless they are exactly the fields that the interface lists for this record.
Dictionary answered(std::span<const Field> fields, Dictionary values) {
    std::size_t known = 0;
    for (const Field& field : fields) {
        if (field.role != FieldRole::answered) continue;
        const bool isThere = values.contains(field.name);
        if (!isThere && !field.kind.ends_with('?'))
            throw std::logic_error("a record lacks " + std::string(field.name));
        known += isThere ? 1 : 0;
    }
    if (known != values.size()) throw std::logic_error("a record has a field that is not answered");
    return values;
}

}  // namespace

void Rest::on(std::string method, std::string pattern, Handler handler) {
    routes_.push_back({std::move(method), std::move(pattern), std::move(handler)});
}

FakeService::Answer Rest::answer(const FakeService::Request& request) {
    try {
        if (const auto file = match(paths::file, request.path))
            return attachments_.answer(file->front(), request);
        const double signedAt = checkSignature(options_, request.headers.get("x-vx-appid"),
                                               request.headers.get("x-vx-request-sign"));
        must(std::abs(Clock::shared()->wallTime() - signedAt) <= kMaxSignatureAge,
             errors::oldSignature);
        if (request.path == paths::attachment && request.method == "POST")
            return {200, upload(request), {}};
        return find(request);
    } catch (const ServiceError& error) {
        return {error.status(), error.json(), {}};
    }
}

FakeService::Answer Rest::find(const FakeService::Request& request) {
    bool isKnown = false;
    for (const Route& route : routes_) {
        const auto parameters = match(route.pattern, request.path);
        if (!parameters) continue;
        isKnown = true;
        if (route.method != request.method) continue;
        return {200,
                route.handler(Call{request, *parameters, Query(request.query), bodyOf(request)}),
                {}};
    }
    throw ServiceError(isKnown ? errors::unknownMethod : errors::unknownPath);
}

Value Rest::upload(const FakeService::Request& request) {
    const std::string name = attachments_.receive(request, store_.newId("", 32));
    const std::string url =
        "http://" + request.headers.get("host").description() + "/files/" + name;
    // a picture is its own thumbnail
    return attachments_.isPicture(name) ? Array{url, url} : Array{url};
}

// Views

Value Rest::user(const Person& person) {
    Array friends, groups, rooms;
    for (const auto& [id, friendship] : person.friends) friends.append(id);
    for (const Place& group : store_.groups) {
        if (group.has(person.id)) groups.append(group.id);
    }
    for (const Place& room : store_.rooms) {
        if (room.has(person.id)) rooms.append(room.id);
    }
    const std::size_t sessions = live_.sessions(person.id);
    return answered(records::user, {{"id", person.id},
                                    {"online", sessions > 0},
                                    {"sessions", sessions},
                                    {"ts", person.updated},
                                    {"attributes", person.attributes},
                                    {"friends", friends},
                                    {"groups", groups},
                                    {"rooms", rooms}});
}

Value Rest::friendOf(const Person& person, const std::string& friendId) {
    const Friendship* const friendship = person.friendshipWith(store_.users.get(friendId).id);
    must(friendship != nullptr, errors::notFriends);
    Dictionary record{{"id", friendId},
                      {"online", live_.sessions(friendId) > 0},
                      {"ts", friendship->since},
                      {"from", friendship->from},
                      {"to", friendship->to}};
    addRecent(record, Store::between(person.id, friendId));
    return answered(records::friend_, std::move(record));
}

Value Rest::group(const Place& group) {
    Dictionary record{{"id", group.id},
                      {"owner", group.owner},
                      {"members", Array::fromStrings(group.members)},
                      {"ts", group.created},
                      {"attributes", group.attributes}};
    addRecent(record, Store::inGroup(group.id));
    Dictionary all = group.fields;
    all.addEntries(answered(records::group, std::move(record)));
    return all;
}

Value Rest::room(const Place& room) {
    return answered(records::room, {{"id", room.id},
                                    {"name", room.name},
                                    {"members", Array::fromStrings(room.members)},
                                    {"ts", room.created},
                                    {"attributes", room.attributes}});
}

Value Rest::passenger(const Record& passenger) {
    Dictionary record = passenger.attributes;
    record.addEntries(
        answered(records::passenger, {{"id", passenger.id}, {"ts", passenger.created}}));
    return record;
}

Value Rest::history(const std::string& conversation, const Query& query) {
    const auto before = count(query, "ts").value_or(0);
    const auto limit = count(query, "limit").value_or(0);
    Array messages;
    for (auto& message : store_.latest(
             conversation,
             before > 0 ? static_cast<double>(before) : std::numeric_limits<double>::infinity(),
             limit > 0 ? static_cast<std::size_t>(std::min<std::uint64_t>(limit, std::size_t(-1)))
                       : kPage)) {
        messages.append(std::move(message));
    }
    return messages;
}

void Rest::addRecent(Dictionary& record, const std::string& conversation) {
    for (auto& message : store_.latest(conversation, std::numeric_limits<double>::infinity(), 1))
        record.set("recent", std::move(message));
}

}  // namespace vexim::testing::fake
