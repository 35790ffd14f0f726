// Runs any script of application calls and server messages through a client with a fake connection.
// Completions run at most once, the status is always valid, and in the end no object is left.
//
// The input is read line by line. A letter is a step (see `step`); a line that begins with another
// character is JSON, an array of an event's name and its arguments, which the server sends.

#include <cstdint>
#include <cstdlib>
#include <memory>
#include <string_view>

#include "VexIMLib/Foundation/JSON.h"
#include "VexIMLib/Foundation/Log.h"
#include "VexIMLib/VexIMLib.h"
#include "VexIMLib/internal/Client/VXIMClientImpl.h"
#include "tests/client/FakeSocket.h"

namespace {

using vexim::testing::FakeSocket;

void require(bool condition) {
    if (!condition) std::abort();
}

VXIMBooleanCompletion atMostOnce() {
    return [runs = std::make_shared<int>(0)](bool succeeded, const vexim::ErrorPtr& error) {
        require(++*runs == 1);
        require(!succeeded || !error);
    };
}

class Life final : public VXIMClientDelegate, public std::enable_shared_from_this<Life> {
public:
    void begin() {
        auto configuration = VXIMClientConfiguration::defaultConfiguration();
        configuration->setAppId("app");  // and no installation: a logout then needs no request
        configuration->setClientKey("key");
        // A login may still be queued when this object is gone.
        client_ = VXIMClient::Impl::make(
            configuration, [weak = weak_from_this()](const auto& url, const auto& options) {
                auto socket = vexim::create<FakeSocket>(url, options);
                if (const auto self = weak.lock()) self->socket_ = socket;
                return socket;
            });
        client_->setDelegate(shared_from_this());
    }

    void line(std::string_view text) {
        if (text.empty() || text.front() == '[') return send(text);
        for (const char letter : text) step(letter);
    }

    void clientDidLogin(const std::shared_ptr<VXIMClient>& client) override { check(client); }
    void clientDidLogout(const std::shared_ptr<VXIMClient>& client) override { check(client); }
    void clientDidDisconnect(const std::shared_ptr<VXIMClient>& client) override { check(client); }
    void clientDidReceiveMessageFromFriend(const std::shared_ptr<VXIMClient>& client,
                                           const std::shared_ptr<VXIMMessage>& message,
                                           const std::shared_ptr<VXIMFriendInfo>& from) override {
        check(client);
        require(message && from && !from->uid().isNilOrNull());
    }
    void clientDidReceiveSystemMessage(const std::shared_ptr<VXIMClient>&,
                                       const std::shared_ptr<VXIMMessage>& message) override {
        require(message->isSystemMessage());
    }

private:
    void step(char letter) {
        switch (letter) {
            case 'd': vexim::MainQueue::shared().drain(); return;
            case 'c':
                if (socket_ && socket_->status() == vexim::SocketIOStatusConnecting)
                    socket_->accept();
                return;
            case 'x':
                if (socket_ && socket_->status() == vexim::SocketIOStatusConnected) socket_->drop();
                return;
            case 'a':
                if (socket_ && socket_->status() == vexim::SocketIOStatusDisconnected)
                    socket_->attemptReconnect();
                return;
            default: break;
        }
        if (!client_) return;
        switch (letter) {
            case 'l': client_->loginWithUsername("name", "password", atMostOnce()); return;
            case 'o': client_->logoutWithCompletion(atMostOnce()); return;
            case 'p': client_->pause(); return;
            case 'r': client_->resume(); return;
            case 's':
                client_->sendMessageToFriend(VXIMMessage::messageWithText("hi"), "u2",
                                             atMostOnce());
                return;
            case 'k': client_ = nullptr; return;
            default: check(client_);
        }
    }

    void send(std::string_view text) {
        const auto event = vexim::parseJSON(text).value;
        const auto* items = event.asArray();
        if (!items || items->empty() || !socket_) return;
        vexim::Array arguments;
        for (std::size_t i = 1; i < items->size(); ++i) arguments.append(items->get(i));
        socket_->send(items->get(0).description(), arguments);
    }

    static void check(const std::shared_ptr<VXIMClient>& client) {
        require(client->status() >= VXIMClientStatusNone &&
                client->status() <= VXIMClientStatusClosed);
    }

    std::shared_ptr<VXIMClient> client_;
    std::shared_ptr<FakeSocket> socket_;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
    static const bool isQuiet = (vexim::setLogSink([](vexim::LogLevel, std::string_view) {}), true);
    require(isQuiet);
    std::string_view rest(reinterpret_cast<const char*>(bytes), size);
    std::weak_ptr<Life> alive;
    {
        auto life = std::make_shared<Life>();
        alive = life;
        life->begin();
        while (!rest.empty()) {
            const auto end = rest.find('\n');
            life->line(rest.substr(0, end));
            rest.remove_prefix(end == rest.npos ? rest.size() : end + 1);
        }
    }
    for (int turns = 0; vexim::MainQueue::shared().drain() > 0; ++turns) require(turns < 10'000);
    require(alive.expired());
    return 0;
}
