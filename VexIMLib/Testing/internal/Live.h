#pragma once

#include <functional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "VexIMLib/Testing/FakeService.h"
#include "VexIMLib/Testing/internal/LiveSession.h"
#include "VexIMLib/Testing/internal/Recording.h"
#include "VexIMLib/Testing/internal/Store.h"

namespace vexim::testing::fake {

/// Throws unless `app` is the application and `signature` was made with its key. Returns the time
/// of the signature, in seconds:
///   signature := md5(seconds key) ',' seconds
double checkSignature(const FakeService::Options& options, const Value& app,
                      const Value& signature);

/// Who is connected, who may log in, and where messages go.
///   in:  the connect parameter "auth", the event "say"
///   out: "login", "message", "yourself", "sys", "online", "offline"
class Live final : public LiveSession::Listener {
public:
    /// `recorded` is called after each entry in `logins` and `messages`.
    Live(const FakeService::Options& options, Store& store, std::function<void()> recorded);

    void add(LiveSession& session) { all_.insert(&session); }
    /// The number of the user's devices; 0 means offline.
    std::size_t sessions(std::string_view user) const;
    void setOnline(const std::string& user, bool online);
    /// Returns how many connections there are; a user without one misses the event.
    std::size_t send(std::string_view user, std::string_view event, const Array& items);
    void sendToAll(std::string_view event, const Array& items);
    /// Delivers a message; throws if `sender` may not write there.
    void say(const std::string& sender, const Value& payload);

    std::size_t drop(std::string_view user);
    std::size_t setSilent(bool silent, std::string_view user);
    /// Closes all connections and resets presence, without notifying anybody.
    void reset();

    FakeService::Logins policy = FakeService::Logins::Checked;
    Recording<Dictionary> logins;
    Recording<FakeService::Message> messages;

private:
    void sessionJoined(LiveSession& session) override;
    void sessionSaid(LiveSession& session, const std::string& event, const Value& item) override;
    void sessionLeft(LiveSession& session) override;
    void sessionEnded(LiveSession& session) override { all_.erase(&session); }

    /// The id of the user or passenger with these credentials. The age of the signature is not
    /// checked, because a reconnect reuses it.
    std::string identify(const Value& auth);
    /// Calls `change`, and notifies the user's friends if that brings the user online or offline.
    void watchPresence(const std::string& user, const std::function<void()>& change);
    /// The connections of `user`; all of them if it is empty.
    std::vector<LiveSession*> links(std::string_view user) const;

    const FakeService::Options& options_;
    Store& store_;
    const std::function<void()> recorded_;
    std::set<LiveSession*> all_;
    std::vector<LiveSession*> loggedIn_;
    std::set<std::string, std::less<>> elsewhere_;
};

}  // namespace vexim::testing::fake
