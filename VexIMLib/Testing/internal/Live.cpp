#include "VexIMLib/Testing/internal/Live.h"

#include <algorithm>
#include <utility>

#include "VexIMLib/Foundation/JSON.h"
#include "VexIMLib/internal/Platform/Facts/Digest.h"

namespace vexim::testing::fake {

namespace {

enum Receiver { ToUser = 0, ToGroup = 1, ToRoom = 2 };

bool same(const Value& given, const std::string& kept) {
    return !kept.empty() && given.asStringView() == kept;
}

bool fits(const Dictionary& auth, const FakeService::User& user) {
    if (auth.contains("username"))
        return same(auth.get("username"), user.username) &&
               same(auth.get("password"), user.password);
    if (auth.contains("phone"))
        return same(auth.get("phone"), user.phone) && same(auth.get("password"), user.smsCode);
    const Dictionary* const oauth = auth.get("oauth").asDictionary();
    return oauth && !user.oauth.empty() &&
           std::ranges::all_of(user.oauth, [&](const Dictionary::Entry& entry) {
               return oauth->get(entry.key) == entry.value;
           });
}

}  // namespace

double checkSignature(const FakeService::Options& options, const Value& app,
                      const Value& signature) {
    const std::string given = signature.asString().value_or("");
    must(!given.empty(), errors::unsigned_);
    must(app.asStringView() == options.appId, errors::unknownApp);
    const auto comma = given.find(',');
    const std::string seconds = comma == std::string::npos ? "" : given.substr(comma + 1);
    must(!seconds.empty() && md5Hex(seconds + options.clientKey) + "," + seconds == given,
         errors::badSignature);
    return Value(seconds).doubleValue();
}

Live::Live(const FakeService::Options& options, Store& store, std::function<void()> recorded)
    : options_(options),
      store_(store),
      recorded_(std::move(recorded)) {}

std::size_t Live::sessions(std::string_view user) const {
    const auto here = std::ranges::count(
        loggedIn_, user,
        [](const LiveSession* session) -> std::string_view { return session->user; });
    return static_cast<std::size_t>(here) + elsewhere_.count(user);
}

void Live::setOnline(const std::string& user, bool online) {
    store_.users.get(user);
    watchPresence(user,
                  [&] { online ? void(elsewhere_.insert(user)) : void(elsewhere_.erase(user)); });
}

std::size_t Live::send(std::string_view user, std::string_view event, const Array& items) {
    std::size_t count = 0;
    for (LiveSession* const session : loggedIn_) {
        if (session->user != user) continue;
        session->emit(event, items);
        ++count;
    }
    return count;
}

void Live::sendToAll(std::string_view event, const Array& items) {
    for (LiveSession* const session : loggedIn_) session->emit(event, items);
}

std::vector<LiveSession*> Live::links(std::string_view user) const {
    if (user.empty()) return {all_.begin(), all_.end()};
    std::vector<LiveSession*> found;
    std::ranges::copy_if(loggedIn_, std::back_inserter(found),
                         [&](const LiveSession* session) { return session->user == user; });
    return found;
}

std::size_t Live::drop(std::string_view user) {
    const auto found = links(user);
    for (LiveSession* const session : found) session->cut();
    return found.size();
}

std::size_t Live::setSilent(bool silent, std::string_view user) {
    const auto found = links(user);
    for (LiveSession* const session : found) session->setSilent(silent);
    return found.size();
}

void Live::reset() {
    for (LiveSession* const session : loggedIn_) session->user.clear();
    loggedIn_.clear();
    elsewhere_.clear();
    drop({});
    policy = FakeService::Logins::Checked;
    logins.clear();
    messages.clear();
}

void Live::watchPresence(const std::string& user, const std::function<void()>& change) {
    const bool wasOnline = sessions(user) > 0;
    change();
    const bool isOnline = sessions(user) > 0;
    const Person* const person = store_.users.find(user);
    if (wasOnline == isOnline || !person) return;
    for (const auto& [friendId, friendship] : person->friends)
        send(friendId, isOnline ? "online" : "offline", {user});
}

// Logging in

std::string Live::identify(const Value& value) {
    const Dictionary* const auth = value.asDictionary();
    must(auth != nullptr, errors::malformedBody, sentences::notAuth);
    checkSignature(options_, auth->get("app"), auth->get("sign"));
    if (const Value* const client = auth->find("client")) {
        const std::string id = client->asString().value_or("");
        return store_.passengers.find(id) ? id : store_.users.get(id).id;
    }
    const auto known = std::ranges::find_if(
        store_.users, [&](const Person& person) { return fits(*auth, person.credentials); });
    must(known != store_.users.end(), errors::wrongCredentials);
    return known->id;
}

/// After a refused login the connection stays open, and the client decides what to do.
void Live::sessionJoined(LiveSession& session) {
    const Value auth = parseJSON(session.auth()).value;
    logins.add(auth.isDictionary() ? *auth.asDictionary() : Dictionary());
    if (policy != FakeService::Logins::Ignored) {
        try {
            must(policy == FakeService::Logins::Checked, errors::wrongCredentials);
            const std::string user = identify(auth);
            watchPresence(user, [&] {
                session.user = user;
                loggedIn_.push_back(&session);
            });
            session.emit("login", {Dictionary{{"success", true}, {"id", user}}});
        } catch (const ServiceError& error) {
            session.emit("login", {Dictionary{{"success", false}, {"error", error.json()}}});
        }
    }
    recorded_();
}

void Live::sessionLeft(LiveSession& session) {
    if (session.user.empty()) return;
    watchPresence(session.user, [&] { std::erase(loggedIn_, &session); });
    session.user.clear();
    recorded_();
}

// Messages

/// Messages that cannot be delivered are dropped, because the client expects no answer.
void Live::sessionSaid(LiveSession& session, const std::string& event, const Value& item) {
    if (event != "say" || session.user.empty()) return;
    FakeService::Message message{session.user, item, {}};
    try {
        say(session.user, item);
    } catch (const ServiceError& error) {
        message.refusal = error.what();
    }
    messages.add(std::move(message));
    recorded_();
}

void Live::say(const std::string& sender, const Value& payload) {
    const Value& to = payload.get("to");
    must(payload.get("content").isDictionary() && to.isDictionary(), errors::invalidValue,
         sentences::notMessage);
    const std::string id = to.get("id").asString().value_or("");
    const Value& type = to.get("type");
    must(
        type.kind() == Value::Kind::Integer && type.integer() >= ToUser && type.integer() <= ToRoom,
        errors::invalidValue, sentences::notReceiver);

    Dictionary from{{"id", sender}, {"type", type}};
    std::vector<std::string> readers;
    std::string conversation;
    if (type.integer() == ToUser) {
        const bool isPassenger = store_.passengers.find(sender) != nullptr;
        if (store_.passengers.find(id)) {
            must(!isPassenger, errors::notFriends);
        } else {
            const Person& reader = store_.users.get(id);
            must(isPassenger || reader.friendshipWith(sender), errors::notFriends);
        }
        readers = {id};
        conversation = Store::between(sender, id);
    } else {
        const bool isGroup = type.integer() == ToGroup;
        const Place& place = (isGroup ? store_.groups : store_.rooms).get(id);
        must(place.has(sender), errors::notMember);
        readers = place.members;
        if (isGroup) conversation = Store::inGroup(id);
        from.set("gid", id);
    }
    Dictionary message = *payload.asDictionary();
    message.remove("speaker");  // readers would treat it as the sender
    if (!message.get("ts").isNumber()) message.set("ts", nowMillis());
    message.set("from", std::move(from));
    for (const auto& reader : readers) {
        if (reader != sender) send(reader, "message", {message});
    }
    send(sender, "yourself", {message});
    // last: a payload with bytes was refused before
    if (!conversation.empty()) store_.remember(conversation, message);
}

}  // namespace vexim::testing::fake
