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

/// The messaging service inside your test's process: REST and live events on a free loopback port,
/// with all data in memory.
///
///     vexim::testing::FakeService service;
///     auto client = VXIMClient::clientWithConfiguration(service.configuration());
///     client->loginWithUserId("alice", [&](bool loggedIn, vexim::ErrorPtr) { … });
///     service.say("bob", "alice", "hello");
///
/// It implements the protocol of docs/service.md, over WebSocket. At first it has the users "alice"
/// and "bob" (the user name equals the id, the passwords are "alice-secret" and "bob-secret"), who
/// are friends and share "demo-group" (owned by Alice) and "demo-room". It runs on its own thread.
/// Its functions may be called from any thread and take effect before they return. An argument that
/// the service would refuse, such as an unknown user, throws std::invalid_argument. It takes the
/// time from `Clock::shared()`. Everything it records also wakes the main queue, so a predicate of
/// `MainQueue::runUntil` can check for it.
class FakeService {
public:
    /// As `times`: use a scripted answer or fault for every request.
    static constexpr std::size_t kAlways = std::numeric_limits<std::size_t>::max();

    /// How the service behaves.
    struct Options {
        // The id and the key of the only application that it knows.
        std::string appId = "demo-app";
        std::string clientKey = "demo-key";

        /// The Socket.IO namespace.
        std::string nsp = "/chat";
        /// The Socket.IO version that it speaks: 2, 3 or 4.
        int socketIOLine = 4;
        /// The heartbeat, at most a day. Real services use less than a minute, and after a longer
        /// silence clients assume that the connection is lost. With a day, a test can advance the
        /// clock by hours without losing it.
        std::chrono::milliseconds pingInterval = std::chrono::hours(24);
        std::chrono::milliseconds pingTimeout = std::chrono::hours(24);
    };

    /// Starts the service. Throws std::runtime_error if it cannot listen.
    FakeService();
    explicit FakeService(Options options);
    ~FakeService();  // cuts all connections
    FakeService(const FakeService&) = delete;
    FakeService& operator=(const FakeService&) = delete;

    /// "http://127.0.0.1:port"
    const std::string& url() const noexcept;
    /// Makes a configuration for a client of this service: address, application id, key, namespace,
    /// and an installation id.
    std::shared_ptr<VXIMClientConfiguration> configuration() const;

    /// Shuts the service down: closes all connections and refuses new ones. Data and scripts stay.
    void stop();
    /// Starts it again at the same address. Does nothing if it is running. Throws
    /// std::runtime_error if another program uses the address by now.
    void start();
    /// Resets everything: the initial data, no scripts, no records, no connections.
    void reset();

    // Data.

    /// A user, and the credentials for each kind of login. Only the id is required. A login whose
    /// credentials are empty here is refused.
    struct User {
        std::string id;  // never changes
        // Username and password belong together, and so do phone and code.
        std::string username = {};
        std::string password = {};
        std::string phone = {};
        std::string smsCode = {};

        /// A login must contain all of these entries.
        Dictionary oauth = {};
        /// The user's custom attributes.
        Dictionary attributes = {};
    };
    /// Adds a user. The id must be new and consist of letters, digits and `. _ ~ @ -`.
    void addUser(User user);
    /// Makes two users friends. Does nothing if they already are.
    void addFriendship(std::string_view user, std::string_view other);
    /// Adds a group. The owner becomes a member. Its id must be new, by the rules for user ids.
    void addGroup(std::string id, std::string owner, std::vector<std::string> members = {},
                  Dictionary attributes = {});
    /// Adds a room, by the same rules. Rooms have no owner.
    void addRoom(std::string id, std::string name, std::vector<std::string> members = {},
                 Dictionary attributes = {});

    // What other users do.

    // `from` writes to a friend, a group or a room. The message is delivered and stored in the
    // history, as if it had come over a connection.
    void say(std::string_view from, std::string_view to, std::string_view text);
    void sayToGroup(std::string_view from, std::string_view group, std::string_view text);
    void sayToRoom(std::string_view from, std::string_view room, std::string_view text);

    /// Sends a system message to everybody who is connected.
    void saySystem(std::string_view text);
    /// `user` connects or disconnects on another device. Friends are notified if the user comes
    /// online or goes offline by that.
    void setOnline(std::string_view user, bool online);
    /// Sends any event to all connections of `user`, even one that no real service would send.
    /// Returns the number of connections.
    std::size_t emit(std::string_view user, std::string_view event, const Array& items);

    // Scripts. A pattern is a path without a query, in which ":name" matches one part:
    // "/ctx/:id/friends". An empty method or pattern matches everything. Scripts are used in the
    // order of the calls, each for `times` requests. After that the service answers normally again.
    // The path of live connections is "/socket.io/".

    /// A REST request that the service received.
    struct Request {
        std::string method;  // in upper case
        /// As it came, without the query.
        std::string path;
        /// As it came, without the "?".
        std::string query;
        /// Names in lower case.
        Dictionary headers;
        std::string body;  // as it came
        /// The body as JSON; nil if it is not JSON.
        Value json() const;
    };
    /// An answer to a REST request.
    struct Answer {
        /// The HTTP status.
        int status = 200;
        /// Sent as JSON; scalars are allowed. `Data` is sent unchanged. nil means `{"success":
        /// true}`.
        Value body = {};
        /// Added to the usual headers; one of the same name replaces the usual one.
        Dictionary headers = {};
    };
    /// Answers matching requests with `answer`; the service does nothing else.
    void answer(std::string method, std::string pattern, Answer answer, std::size_t times = 1);
    /// Calls `make` for each matching request, on the service's thread. If it throws, the answer
    /// has status 500.
    void answer(std::string method, std::string pattern, std::function<Answer(const Request&)> make,
                std::size_t times = kAlways);

    /// Ways for a connection to fail.
    enum class Fault {
        Close,     ///< closes the connection without an answer
        CutShort,  ///< sends half of the normal answer, then closes the connection
        Silence,   ///< never answers
    };
    /// Fails matching requests in this way instead of answering.
    void fail(std::string method, std::string pattern, Fault fault, std::size_t times = 1);
    /// Answers matching requests normally, but `delay` later by `Clock::shared()`.
    void delay(std::string method, std::string pattern, std::chrono::nanoseconds delay,
               std::size_t times = 1);

    /// How the service treats logins of live connections.
    enum class Logins {
        Checked,  ///< accepted if the credentials are right; the default
        Refused,  ///< always refused, with error code 1105
        Ignored,  ///< never answered
    };
    /// Sets it for future logins.
    void setLogins(Logins logins);
    /// Drops the live connections of `user` (empty: of everybody) without closing them properly.
    /// Returns how many.
    std::size_t dropConnections(std::string_view user = {});
    /// With true, the present live connections of `user` (empty: of everybody) become silent,
    /// heartbeats included; with false they talk again. What clients send meanwhile is lost.
    /// Returns how many connections there are.
    std::size_t setSilent(bool silent, std::string_view user = {});

    // What the service received, in order: the newest 10 000 of each kind. Reading does not remove
    // anything.

    /// The REST requests, including those that a script answered.
    std::vector<Request> requests() const;
    /// The credentials of live connections, including refused ones.
    std::vector<Dictionary> logins() const;
    /// A chat message that a client sent.
    struct Message {
        std::string from;  // the user's id
        /// As it came.
        Value payload;
        /// Why it was not delivered; empty if it was.
        std::string refusal;

        /// Its text, or the URL of its attachment.
        std::string body() const;
    };
    /// The chat messages that clients sent over live connections.
    std::vector<Message> messages() const;
    /// How many live connections `user` has, including those of `setOnline`.
    std::size_t connections(std::string_view user) const;
    /// Clears all three lists. Data, scripts and connections stay.
    void forgetWhatCame();

private:
    class Impl;
    std::shared_ptr<Impl> impl_;
};

}  // namespace vexim::testing
