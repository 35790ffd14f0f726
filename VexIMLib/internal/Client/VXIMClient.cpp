#include "VexIMLib/VXIMClient.h"

#include <algorithm>
#include <iterator>
#include <utility>

#include "VexIMLib/Foundation/Exception.h"
#include "VexIMLib/Foundation/MainQueue.h"
#include "VexIMLib/Foundation/NotificationCenter.h"
#include "VexIMLib/Foundation/Runtime/Class.h"
#include "VexIMLib/VXIMConstants.h"
#include "VexIMLib/internal/Client/VXIMClientImpl.h"
#include "VexIMLib/internal/Platform/Facts/EventNames.h"
#include "VexIMLib/internal/SocketIO/Client/RecordedClient.h"

VXIMClient::VXIMClient(vexim::Creation creation)
    : Object(creation),
      impl_(std::make_unique<Impl>()) {}

VXIMClient::~VXIMClient() = default;

std::shared_ptr<VXIMClient> VXIMClient::clientWithAppId(std::optional<std::string> appId,
                                                        std::optional<std::string> clientKey,
                                                        std::optional<std::string> installationId) {
    auto configuration = VXIMClientConfiguration::defaultConfiguration();
    configuration->setAppId(std::move(appId));
    configuration->setClientKey(std::move(clientKey));
    configuration->setInstallationId(std::move(installationId));
    return clientWithConfiguration(std::move(configuration));
}

std::shared_ptr<VXIMClient> VXIMClient::clientWithConfiguration(
    std::shared_ptr<VXIMClientConfiguration> configuration) {
    return initWithConfiguration(std::move(configuration));
}

std::shared_ptr<VXIMClient> VXIMClient::initWithConfiguration(
    std::shared_ptr<VXIMClientConfiguration> configuration) {
    return Impl::make(std::move(configuration), {});
}

std::shared_ptr<VXIMClient> VXIMClient::init() {
    return initWithConfiguration(VXIMClientConfiguration::defaultConfiguration());
}

std::shared_ptr<VXIMClient> VXIMClient::Impl::make(
    std::shared_ptr<VXIMClientConfiguration> configuration, SocketFactory makeSocket) {
    if (!configuration)
        throw vexim::Exception(vexim::kInvalidArgumentException, "A client needs a configuration.");
    auto client = vexim::create<VXIMClient>();
    Impl& impl = *client->impl_;
    if (!makeSocket) {
        makeSocket = [record = impl.record](const std::optional<vexim::URL>& url,
                                            const vexim::Dictionary& options) {
            return vexim::makeSocketIOClient(url, options, record);
        };
    }
    impl.owner = client;
    impl.config = std::move(configuration);
    impl.makeSocket = std::move(makeSocket);
    vxim_configuration = impl.config;
    return client;
}

VXIMClientStatus VXIMClient::status() const noexcept { return impl_->status; }

namespace {

const char* nameOf(VXIMClientStatus status) {
    switch (status) {
        case VXIMClientStatusNone: return "none";
        case VXIMClientStatusOpening: return "opening";
        case VXIMClientStatusOpened: return "opened";
        case VXIMClientStatusPaused: return "paused";
        case VXIMClientStatusResuming: return "resuming";
        case VXIMClientStatusClosing: return "closing";
        case VXIMClientStatusClosed: return "closed";
    }
    return "unknown";
}

}  // namespace

void VXIMClient::Impl::enter(VXIMClientStatus next) {
    const auto former = status.exchange(next);
    if (former == next) return;
    record->add(vexim::events::kStatus, {{"from", nameOf(former)}, {"to", nameOf(next)}});
    // Queued, because the client is in the middle of a step and an observer may call it.
    vexim::MainQueue::shared().async([weak = owner, next] {
        const auto client = weak.lock();
        if (!client) return;
        vexim::NotificationCenter::defaultCenter().post(
            VXIMClientDidChangeStatusNotification, client,
            vexim::Dictionary{{"status", static_cast<std::int32_t>(next)}});
    });
}

VXIMDiagnosis VXIMClient::diagnose() const {
    auto events = impl_->record->events();
    auto requests = vexim::EventRecord::ofRequests().events();
    std::ranges::move(requests, std::back_inserter(events));
    std::ranges::stable_sort(events, {}, &VXIMDiagnosisEvent::time);
    return VXIMDiagnosis(std::move(events));
}

std::shared_ptr<VXIMClientDelegate> VXIMClient::delegate() const { return impl_->delegate.lock(); }

void VXIMClient::setDelegate(const std::shared_ptr<VXIMClientDelegate>& delegate) {
    impl_->delegate = delegate;
}

std::shared_ptr<VXIMUser> VXIMClient::currentUser() const { return impl_->currentUser.get(); }

std::shared_ptr<VXIMClientConfiguration> VXIMClient::config() const { return impl_->config; }

std::shared_ptr<vexim::SocketIOClient> VXIMClient::socketio() const {
    return impl_->socketio.get();
}

bool VXIMClient::offlineTemporally() const noexcept { return impl_->offlineTemporally; }

bool VXIMClient::tryLogout() const noexcept { return impl_->tryLogout; }

void VXIMClient::resetFlags() noexcept { impl_->resetFlags(); }

void VXIMClient::Impl::resetFlags() noexcept {
    offlineTemporally = false;
    tryLogout = false;
}

const std::optional<vexim::Array>& VXIMClient::onlineFriends() const noexcept {
    return impl_->onlineFriends;
}

void VXIMClient::setOnlineFriends(std::optional<vexim::Array> friends) {
    impl_->onlineFriends = std::move(friends);
}

const std::optional<vexim::Dictionary>& VXIMClient::messages() const noexcept {
    return impl_->messages;
}

void VXIMClient::setMessages(std::optional<vexim::Dictionary> messages) {
    impl_->messages = std::move(messages);
}

const vexim::Class& VXIMClient::runtimeClass() const {
    static const vexim::Class& cls =
        vexim::Class::declare("VXIMClient", &vexim::Object::staticClass());
    return cls;
}
