#include "VexIMLib/SocketIOClient.h"

#include <atomic>
#include <utility>

#include "VexIMLib/Foundation/Log.h"
#include "VexIMLib/internal/SocketIO/Client/LinkKeeper.h"
#include "VexIMLib/internal/SocketIO/Client/RecordedClient.h"
#include "VexIMLib/internal/SocketIO/Client/SocketIOCore.h"

namespace vexim {
namespace {

/// The client that talks to servers. It owns the two halves of the implementation.
class LiveSocketIOClient final : public SocketIOClient {
public:
    using SocketIOClient::SocketIOClient;
    ~LiveSocketIOClient() override {
        if (core_) core_->shutDown();
    }

    bool initialise(const std::optional<URL>& url, const Dictionary& dictionary,
                    std::shared_ptr<EventRecord> record) {
        ParsedOptions parsed = parseSocketIOOptions(dictionary);
        for (const auto& complaint : parsed.complaints)
            log(LogLevel::Warning, "socket.io: ignored an " + complaint);
        auto endpoint = endpointOf(url, parsed.options.secure);
        parsed.options.transport.trust = trustFor(endpoint, dictionary);
        // Everything below takes these from here.
        SocketIOEnvironment environment{Clock::shared(), Random::shared(), &HostResolver::system()};
        core_ = std::make_shared<SocketIOCore>(parsed.options, environment.clock);
        keeper_ =
            std::make_shared<LinkKeeper>(core_, std::move(endpoint), std::move(parsed.options),
                                         std::move(environment), std::move(record));
        core_->attach(keeper_);
        return true;
    }

    void joinNamespace(std::string_view nsp) override { core_->joinNamespace(nsp); }
    std::string nsp() const override { return core_->nsp(); }
    void connect() override { core_->connect(); }
    void disconnect() override { core_->disconnect(); }
    SocketIOStatus status() const noexcept override { return core_->status(); }
    void networkDidChange() override { keeper_->networkDidChange(); }
    HandlerId on(std::string_view event, Handler handler) override {
        return core_->handlers().add(event, std::move(handler));
    }
    void off(std::string_view event) override { core_->handlers().remove(event); }
    void off(HandlerId id) override { core_->handlers().remove(id); }
    void removeAllHandlers() override { core_->handlers().removeAll(); }
    ErrorPtr tryEmit(std::string_view event, const Array& items) override {
        return core_->tryEmit(event, items);
    }
    bool emit(std::string_view event, const Array& items) override {
        return core_->emit(event, items);
    }
    void emitWithAck(std::string_view event, const Array& items, std::chrono::milliseconds timeout,
                     AckCallback callback) override {
        core_->emitWithAck(event, items, timeout, std::move(callback));
    }

private:
    std::shared_ptr<SocketIOCore> core_;
    std::shared_ptr<LinkKeeper> keeper_;
};

}  // namespace

struct AckEmitter::State {
    explicit State(Send function) : send(std::move(function)) {}
    const Send send;
    std::atomic<bool> used{false};
};

AckEmitter::AckEmitter(Send send) : state_(std::make_shared<State>(std::move(send))) {}

void AckEmitter::with(const Array& items) const {
    if (state_ && !state_->used.exchange(true) && state_->send) state_->send(items);
}

std::shared_ptr<SocketIOClient> SocketIOClient::create(const std::optional<URL>& url,
                                                       const Dictionary& options) {
    return makeSocketIOClient(url, options, nullptr);
}

std::shared_ptr<SocketIOClient> makeSocketIOClient(const std::optional<URL>& url,
                                                   const Dictionary& options,
                                                   std::shared_ptr<EventRecord> record) {
    return vexim::create<LiveSocketIOClient>(url, options, std::move(record));
}

}  // namespace vexim
