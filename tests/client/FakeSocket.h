#pragma once

#include <atomic>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "VexIMLib/Foundation/Exception.h"
#include "VexIMLib/Foundation/MainQueue.h"
#include "VexIMLib/SocketIOClient.h"
#include "VexIMLib/internal/SocketIO/Protocol/Namespace.h"

namespace vexim::testing {

/// A connection without a network. It has the state of a real one, and the test acts as the server.
/// Handlers run on the main queue, in order.
class FakeSocket final : public SocketIOClient {
public:
    using SocketIOClient::SocketIOClient;
    bool initialise(const std::optional<URL>& givenURL, const Dictionary& givenOptions) {
        url = givenURL;
        options = givenOptions;
        return true;
    }

    // What the client did.
    std::optional<URL> url;
    Dictionary options;
    std::vector<std::pair<std::string, Array>> emitted;
    std::vector<std::string> eventsListenedTo;
    int connects = 0;
    ErrorPtr refusal;            // the result of an emit while connected
    int refused = 0;             // how often it was
    bool isSlowToClose = false;  // "disconnect" comes with a later call of `disconnect`

    // The server's side.
    void accept() {
        if (status_ != SocketIOStatusConnecting) throw std::logic_error("nobody is connecting");
        status_ = SocketIOStatusConnected;
        deliver("connect", {nsp_});
    }
    void acceptLogin(const char* id) {
        accept();
        send("login", {Dictionary{{"success", true}, {"id", id}}});
    }
    void send(const std::string& event, Array arguments = {}) {
        deliver(event, std::move(arguments));
    }
    void drop() {
        if (status_ != SocketIOStatusConnected) throw std::logic_error("nothing to drop");
        status_ = SocketIOStatusDisconnected;
        deliver("disconnect", {"transport close"});
    }
    void attemptReconnect() {
        status_ = SocketIOStatusConnecting;
        deliver("reconnect", {1});
    }
    bool hasHandlers() const { return !handlers_.empty(); }

    // SocketIOClient.
    void joinNamespace(std::string_view nsp) override { nsp_ = parseNamespace(nsp).name; }
    std::string nsp() const override { return nsp_; }
    void connect() override {
        ++connects;
        if (status_ < SocketIOStatusConnecting) status_ = SocketIOStatusConnecting;
    }
    void disconnect() override {
        if (status_ == SocketIOStatusNotConnected) return;
        status_ = SocketIOStatusDisconnected;
        if (!isSlowToClose) deliver("disconnect", {"io client disconnect"});
    }
    SocketIOStatus status() const noexcept override { return status_; }
    void networkDidChange() override {}
    HandlerId on(std::string_view event, Handler handler) override {
        eventsListenedTo.emplace_back(event);
        handlers_.emplace(std::string(event), std::move(handler));
        return eventsListenedTo.size();
    }
    void off(std::string_view event) override { handlers_.erase(std::string(event)); }
    void off(HandlerId) override {}
    void removeAllHandlers() override { handlers_.clear(); }
    ErrorPtr tryEmit(std::string_view event, const Array& items) override {
        if (status_ != SocketIOStatusConnected) {
            return Error::withDescription(kSocketIOErrorDomain, SocketIOErrorNotConnected,
                                          "the link is gone");
        }
        if (refusal) return ++refused, refusal;
        emitted.emplace_back(event, items);
        return nullptr;
    }
    bool emit(std::string_view event, const Array& items) override {
        return !tryEmit(event, items);
    }
    void emitWithAck(std::string_view, const Array&, std::chrono::milliseconds,
                     AckCallback) override {
        throw std::logic_error("the library asks for no acknowledgement");
    }

private:
    void deliver(const std::string& event, Array arguments) {
        MainQueue::shared().async(
            [weak = weak_from_this(), event, arguments = std::move(arguments)] {
                const auto self = std::static_pointer_cast<FakeSocket>(weak.lock());
                if (!self) return;
                const auto handlers = self->handlers_;  // a copy: a handler may remove them
                const auto [first, last] = handlers.equal_range(event);
                for (auto entry = first; entry != last; ++entry) entry->second(arguments, {});
            });
    }

    std::string nsp_ = "/";
    std::atomic<SocketIOStatus> status_{SocketIOStatusNotConnected};
    std::multimap<std::string, Handler> handlers_;
};

}  // namespace vexim::testing
