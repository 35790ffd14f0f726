#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <limits>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "VexIMLib/Foundation/Array.h"
#include "VexIMLib/Foundation/Dictionary.h"
#include "VexIMLib/Foundation/Value.h"
#include "VexIMLib/VXIMClientConfiguration.h"

namespace vexim::testing {

/// The messaging service, in your test's own process: REST and live events on a free loopback port,
/// everything in memory.
///
///     vexim::testing::FakeService service;
///     auto client = VXIMClient::clientWithConfiguration(service.configuration());
///     client->loginWithUserId("alice", [&](bool loggedIn, vexim::ErrorPtr) { … });
///     service.say("bob", "alice", "hello");
///
/// It speaks what docs/service.md describes, over WebSocket, and begins with the users "alice" and
/// "bob" (user name as the id, password "alice-secret" and "bob-secret"), who are friends and share
/// "demo-group" (Alice owns it) and "demo-room". It runs on a thread of its own; its functions may
/// be called from any thread and take effect before they return. What they are given and the
/// service would refuse, as an unknown user, throws std::invalid_argument. Its times are
/// `Clock::shared()`'s. Whatever it records also wakes the main queue, so that a predicate of
/// `MainQueue::runUntil` may look at it.
class FakeService {
public:
    /// How often a scripted answer or fault is used when nothing ends it.
    static constexpr std::size_t kAlways = std::numeric_limits<std::size_t>::max();

    /// What the service is like.
    struct Options {
        // The only application that it knows.
        std::string appId = "demo-app";
        std::string clientKey = "demo-key";

        /// The Socket.IO namespace.
        std::string nsp = "/chat";
        /// The line of Socket.IO servers that it speaks like: 2, 3 or 4.
        int socketIOLine = 4;
        /// The heartbeat, at most a day. A real service's is under a minute, and clients take a
        /// silence that is longer for a loss; here a clock may be turned by hours without one.
        std::chrono::milliseconds pingInterval = std::chrono::hours(24);
        std::chrono::milliseconds pingTimeout = std::chrono::hours(24);
    };

    /// Starts to listen.
    FakeService();
    explicit FakeService(Options options);
    ~FakeService();  // cuts all connections
    FakeService(const FakeService&) = delete;
    FakeService& operator=(const FakeService&) = delete;

    /// "http://127.0.0.1:port"
    const std::string& url() const noexcept;
    /// A configuration for clients of this service: its address, application id, key and namespace,
    /// and an installation id.
    std::shared_ptr<VXIMClientConfiguration> configuration() const;

    /// Goes down: cuts all connections and refuses new ones. Data and scripts stay.
    void stop();
    /// Comes back at the same address. Does nothing when it is up; throws std::runtime_error when
    /// somebody else has taken the address meanwhile.
    void start();
    /// Back to the beginning: its data, no scripts, nothing recorded, all connections cut.
    void reset();

    // The data.

    /// A user and what it may log in with; only the id is required, without the others that login
    /// is refused.
    struct User {
        std::string id;  // never changes
        // The two belong together, as do phone and code.
        std::string username = {};
        std::string password = {};
        std::string phone = {};
        std::string smsCode = {};

        /// All entries must be in the login's.
        Dictionary oauth = {};
        /// The user's custom attributes.
        Dictionary attributes = {};
    };
    /// The id must be a new one, of letters, digits and `. _ ~ @ -`.
    void addUser(User user);
    /// Mutual; does nothing when they are friends already.
    void addFriendship(std::string_view user, std::string_view other);
    /// The owner becomes a member. The id must be a new one, as a user's.
    void addGroup(std::string id, std::string owner, std::vector<std::string> members = {},
                  Dictionary attributes = {});
    /// Likewise, without an owner.
    void addRoom(std::string id, std::string name, std::vector<std::string> members = {},
                 Dictionary attributes = {});

    // What other people do.

    // `from` writes to a friend, a group or a room; the message is delivered and goes into the
    // history as if it had come over a connection.
    void say(std::string_view from, std::string_view to, std::string_view text);
    void sayToGroup(std::string_view from, std::string_view group, std::string_view text);
    void sayToRoom(std::string_view from, std::string_view room, std::string_view text);

    /// A system message to everybody who is connected.
    void saySystem(std::string_view text);
    /// `user` comes or goes on a device elsewhere; friends hear of it when that changes whether the
    /// user is online.
    void setOnline(std::string_view user, bool online);
    /// Sends any event to the connections of `user` and returns how many there are: also what no
    /// real service would send.
    std::size_t emit(std::string_view user, std::string_view event, const Array& items);

    // Scripts. A pattern is a path without query, where ":name" stands for any one part:
    // "/ctx/:id/friends". An empty method or pattern fits all. Scripts are used in the order given,
    // each `times` times; then the service answers by itself again. The path of live connections is
    // "/socket.io/".

    /// A REST request as it came.
    struct Request {
        std::string method;  // in upper case
        /// As it came, without the query.
        std::string path;
        /// As it came, without the "?".
        std::string query;
        /// Names in lower case.
        Dictionary headers;
        std::string body;  // as it came
        /// The body as JSON; nil when it is none.
        Value json() const;
    };
    /// What a REST request is answered.
    struct Answer {
        /// The HTTP status.
        int status = 200;
        /// Sent as JSON, scalars too; `Data` as it stands, so that it can be anything; nil is
        /// `{"success": true}`.
        Value body = {};
        /// Instead of, or besides, the usual ones.
        Dictionary headers = {};
    };
    /// The service does nothing but answer this.
    void answer(std::string method, std::string pattern, Answer answer, std::size_t times = 1);
    /// `make` runs on the service's thread; what it throws is answered with status 500.
    void answer(std::string method, std::string pattern, std::function<Answer(const Request&)> make,
                std::size_t times = kAlways);

    /// How a connection can let its client down.
    enum class Fault {
        Close,     ///< the connection is closed unanswered
        CutShort,  ///< half of what the service would answer, then the connection is closed
        Silence,   ///< nothing is ever answered
    };
    /// Such a fault instead of an answer.
    void fail(std::string method, std::string pattern, Fault fault, std::size_t times = 1);
    /// The service answers by itself, `delay` later by `Clock::shared()`.
    void delay(std::string method, std::string pattern, std::chrono::nanoseconds delay,
               std::size_t times = 1);

    /// What becomes of live connections' logins.
    enum class Logins {
        Checked,  ///< the usual: by their credentials
        Refused,  ///< with error code 1105, whatever they hold
        Ignored,  ///< never answered
    };
    /// For those that come from now on.
    void setLogins(Logins logins);
    /// Cuts the live connections of `user`, or with an empty one all, without a farewell; returns
    /// how many.
    std::size_t dropConnections(std::string_view user = {});
    /// Makes those that there are deaf and dumb, heartbeats included, or has them listen again;
    /// what came meanwhile is lost.
    std::size_t setSilent(bool silent, std::string_view user = {});

    // What came, in order, the newest 10 000 of each kind. Asking forgets nothing.

    /// REST requests, also those that a script answered.
    std::vector<Request> requests() const;
    /// Live connections' credentials, also those that were refused.
    std::vector<Dictionary> logins() const;
    /// A chat message that a client sent.
    struct Message {
        std::string from;  // the user's id
        /// As it came.
        Value payload;
        /// Why nobody got it; empty when its readers did.
        std::string refusal;

        /// Its text, or its attachment's URL.
        std::string body() const;
    };
    /// What clients sent over live connections.
    std::vector<Message> messages() const;
    /// How many live connections `user` has, those of `setOnline` included.
    std::size_t connections(std::string_view user) const;
    /// Of all three kinds; data, scripts and connections stay.
    void forgetWhatCame();

private:
    class Impl;
    std::shared_ptr<Impl> impl_;
};

}  // namespace vexim::testing
