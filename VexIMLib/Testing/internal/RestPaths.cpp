// The paths of the REST interface, and what each does.
#include <span>
#include <utility>

#include "VexIMLib/Testing/internal/Rest.h"
#include "VexIMLib/Testing/internal/Search.h"

namespace vexim::testing::fake {

namespace {

const Dictionary& object(const Value& body) {
    must(body.isDictionary(), errors::malformedBody, sentences::notObject);
    return *body.asDictionary();
}

std::string text(const Value& value, const std::string& name) {
    must(value.isString() && !value.asStringView()->empty(), errors::invalidValue,
         named(sentences::notText, name));
    return *value.asString();
}

std::vector<std::string> texts(const Value& value, const std::string& name) {
    must(value.isArray() && value.asArray()->strings().size() == value.asArray()->size(),
         errors::invalidValue, named(sentences::notTexts, name));
    return value.asArray()->strings();
}

std::vector<std::string> members(const Value& body) {
    return texts(object(body).get("members"), "members");
}

/// `body` itself. Throws if a field is not of the kind that the interface gives for it.
const Dictionary& checked(std::span<const Field> fields, const Dictionary& body) {
    for (const Field& field : fields) {
        const Value* const given = body.find(field.name);
        if (field.role != FieldRole::given || !given) continue;
        const std::string name(field.name);
        if (field.kind == "text") text(*given, name);
        if (field.kind == "texts") texts(*given, name);
    }
    return body;
}

/// The fields of `body` that are stored as they are: all except those that the service sets itself.
Dictionary freeFields(std::span<const Field> fields, Dictionary body) {
    for (const Field& field : fields) {
        if (field.role == FieldRole::answered) body.remove(field.name);
    }
    return body;
}

void change(Record& record, Dictionary attributes) {
    record.attributes = std::move(attributes);
    record.updated = nowMillis();
}

void leave(Place& place, const std::vector<std::string>& leaving) {
    for (const auto& member : leaving) std::erase(place.members, member);
}

}  // namespace

Rest::Rest(const FakeService::Options& options, Store& store, Live& live)
    : options_(options),
      store_(store),
      live_(live) {
    addUsers();
    addFriends();
    addGroups();
    addRooms();
    addPassengers();
    addSystem();
}

void Rest::addAttributes(const char* path, const char* pathOfOne,
                         const std::function<Record&(const std::string&)>& find) {
    on("GET", path, [find](const Call& call) -> Value { return find(call.id()).attributes; });
    on("POST", path, [find](const Call& call) -> Value {
        Record& owner = find(call.id());
        Dictionary merged = owner.attributes;
        merged.addEntries(object(call.body));
        change(owner, std::move(merged));
        return nullptr;
    });
    on("PUT", path, [find](const Call& call) -> Value {
        change(find(call.id()), object(call.body));
        return nullptr;
    });
    on("DELETE", path, [find](const Call& call) -> Value {
        change(find(call.id()), {});
        return nullptr;
    });
    on("GET", pathOfOne, [find](const Call& call) -> Value {
        const Value* const attribute = find(call.id()).attributes.find(call.parameters[1]);
        must(attribute != nullptr, errors::unknownAttribute);
        return *attribute;
    });
}

void Rest::addUsers() {
    on("GET", paths::users, [this](const Call& call) -> Value {
        return search(store_.users, call.query, [&](const Person& each) { return user(each); });
    });
    on("GET", paths::user, [this](const Call& call) { return user(store_.users.get(call.id())); });
    on("DELETE", paths::userInstalls, [this](const Call& call) -> Value {
        store_.users.get(call.id());
        texts(object(call.body).get("installs"), "installs");  // nothing is ever pushed to them
        return nullptr;
    });
    const auto addPlaces = [this](const std::string& path, Table<Place>& places,
                                  Value (Rest::*view)(const Place&)) {
        on("GET", path, [this, &places, view](const Call& call) -> Value {
            const Person& person = store_.users.get(call.id());
            Array list;
            for (const Place& place : places) {
                if (place.has(person.id))
                    list.append(call.query.has("detail") ? (this->*view)(place) : Value(place.id));
            }
            return list;
        });
    };
    addPlaces(paths::userGroups, store_.groups, &Rest::group);
    addPlaces(paths::userRooms, store_.rooms, &Rest::room);
    addAttributes(paths::userAttributes, paths::userAttribute,
                  [this](const std::string& id) -> Record& { return store_.users.get(id); });
}

void Rest::addFriends() {
    on("GET", paths::friends, [this](const Call& call) -> Value {
        const Person& person = store_.users.get(call.id());
        Array list;
        for (const auto& [id, friendship] : person.friends)
            list.append(call.query.has("detail") ? friendOf(person, id) : Value(id));
        return list;
    });
    on("GET", paths::friend_, [this](const Call& call) {
        return friendOf(store_.users.get(call.id()), call.parameters[1]);
    });
    on("POST", paths::friend_, [this](const Call& call) {
        store_.befriend(call.id(), call.parameters[1]);
        return friendOf(store_.users.get(call.id()), call.parameters[1]);
    });
    on("DELETE", paths::friend_, [this](const Call& call) -> Value {
        store_.unfriend(call.id(), call.parameters[1]);
        return nullptr;
    });
    on("GET", paths::friendChats, [this](const Call& call) {
        friendOf(store_.users.get(call.id()), call.parameters[1]);
        return history(Store::between(call.id(), call.parameters[1]), call.query);
    });
}

/// A group's name is one of its attributes. Fields that the service sets itself are left out; all
/// others are kept unchanged.
void Rest::addGroups() {
    const auto take = [](Place& group, Dictionary body) {
        const Value name = body.get("name");
        if (const Value& attributes = body.get("attributes"); !attributes.isNil())
            group.attributes = object(attributes);
        if (!name.isNil()) group.attributes.set("name", name);
        body.remove("name");
        group.fields.addEntries(freeFields(records::group, std::move(body)));
    };
    on("GET", paths::groups, [this](const Call& call) -> Value {
        return search(store_.groups, call.query, [&](const Place& each) { return group(each); });
    });
    on("POST", paths::groups, [this, take](const Call& call) -> Value {
        const Dictionary& body = checked(records::group, object(call.body));
        Place made;
        made.owner = text(body.get("owner"), "owner");
        if (body.contains("members")) made.members = members(body);
        take(made, body);
        return store_.addGroup(std::move(made)).id;
    });
    on("GET", paths::group,
       [this](const Call& call) { return group(store_.groups.get(call.id())); });
    on("PUT", paths::group, [this, take](const Call& call) -> Value {
        Place& group = store_.groups.get(call.id());
        const Dictionary& body = checked(records::group, object(call.body));
        const std::string owner =
            body.contains("owner") ? store_.users.get(body.get("owner").asString().value_or("")).id
                                   : group.owner;
        if (body.contains("members")) {
            Place renewed;
            store_.addMembers(renewed, members(body));
            group.members = std::move(renewed.members);
        }
        group.owner = owner;
        take(group, body);
        return nullptr;
    });
    on("DELETE", paths::group, [this](const Call& call) -> Value {  // rooms, too
        if (store_.groups.remove(call.id())) {
            store_.forget(Store::inGroup(call.id()));
        } else {
            must(store_.rooms.remove(call.id()), errors::unknownGroup);
        }
        return nullptr;
    });
    on("POST", paths::groupMembers, [this](const Call& call) -> Value {
        store_.addMembers(store_.groups.get(call.id()), members(call.body));
        return nullptr;
    });
    on("DELETE", paths::groupMembers, [this](const Call& call) -> Value {
        leave(store_.groups.get(call.id()), members(call.body));
        return nullptr;
    });
    on("GET", paths::groupChats, [this](const Call& call) {
        return history(Store::inGroup(store_.groups.get(call.id()).id), call.query);
    });
    addAttributes(paths::groupAttributes, paths::groupAttribute,
                  [this](const std::string& id) -> Record& { return store_.groups.get(id); });
}

/// A room has no owner, its name is not an attribute, and it is deleted under /groups.
void Rest::addRooms() {
    on("GET", paths::rooms, [this](const Call& call) -> Value {
        return search(store_.rooms, call.query, [&](const Place& each) { return room(each); });
    });
    on("POST", paths::rooms, [this](const Call& call) -> Value {
        Place made;
        made.name = text(object(call.body).get("name"), "name");
        made.members = members(call.body);
        return store_.addRoom(std::move(made)).id;
    });
    on("GET", paths::room, [this](const Call& call) { return room(store_.rooms.get(call.id())); });
    on("PUT", paths::room, [this](const Call& call) -> Value {
        store_.rooms.get(call.id()).name = text(object(call.body).get("name"), "name");
        return nullptr;
    });
    on("POST", paths::roomMembers, [this](const Call& call) -> Value {
        store_.addMembers(store_.rooms.get(call.id()), members(call.body));
        return nullptr;
    });
    // the bare array, unlike everywhere else
    on("DELETE", paths::roomMembers, [this](const Call& call) -> Value {
        leave(store_.rooms.get(call.id()), texts(call.body, "body"));
        return nullptr;
    });
    addAttributes(paths::roomAttributes, paths::roomAttribute,
                  [this](const std::string& id) -> Record& { return store_.rooms.get(id); });
}

void Rest::addPassengers() {
    // changes the one whose "id" is given, or makes one
    on("POST", paths::passengers, [this](const Call& call) -> Value {
        const Dictionary& body = checked(records::passenger, object(call.body));
        const Value id = body.get("id");
        Dictionary fields = freeFields(records::passenger, body);
        if (id.isNil()) return store_.addPassenger(store_.newId("p"), std::move(fields)).id;
        const std::string given = id.asString().value_or("");
        if (Record* const known = store_.passengers.find(given)) {
            known->attributes.addEntries(fields);
            return given;
        }
        return store_.addPassenger(given, std::move(fields)).id;
    });
    on("GET", paths::passenger,
       [this](const Call& call) { return passenger(store_.passengers.get(call.id())); });
    on("GET", paths::passengerChats, [this](const Call& call) {
        return history(Store::between(store_.passengers.get(call.id()).id,
                                      store_.users.get(call.parameters[1]).id),
                       call.query);
    });
}

void Rest::addSystem() {
    on("POST", paths::system, [this](const Call& call) -> Value {
        live_.sendToAll("sys", {object(call.body)});
        return nullptr;
    });
    on("POST", paths::systemTo, [this](const Call& call) -> Value {
        std::vector<std::string> readers;
        if (call.query.has("group")) {
            readers = store_.groups.get(call.id()).members;
        } else if (call.query.has("room")) {
            readers = store_.rooms.get(call.id()).members;
        } else {
            readers = {store_.passengers.find(call.id()) ? call.id()
                                                         : store_.users.get(call.id()).id};
        }
        for (const auto& reader : readers) live_.send(reader, "sys", {object(call.body)});
        return nullptr;
    });
}

}  // namespace vexim::testing::fake
