#include "VexIMLib/VXIMClientConfiguration.h"

#include <utility>

#include "VexIMLib/Foundation/Runtime/Class.h"
#include "VexIMLib/Foundation/ThreadSafety.h"
#include "VexIMLib/Foundation/Value.h"

#ifndef VEXIM_DEFAULT_BASE_URL
#error "the build names the service's default origin"
#endif

std::shared_ptr<VXIMClientConfiguration> VXIMClientConfiguration::init() { return vexim::create<VXIMClientConfiguration>(); }

std::shared_ptr<VXIMClientConfiguration> VXIMClientConfiguration::defaultConfiguration() {
    auto configuration = init();
    configuration->setSocketURL(vexim::URL::parse(VEXIM_DEFAULT_BASE_URL));
    configuration->setNsp("/chat");
    configuration->setForceWebsockets(true);
    return configuration;
}

// Each writes its option also when the value is the default: an explicit "no" is passed on, one that was never said is not.

void VXIMClientConfiguration::setForcePolling(bool force) {
    forcePolling_ = force;
    dictionary().set("forcePolling", force);
}

void VXIMClientConfiguration::setForceWebsockets(bool force) {
    forceWebsockets_ = force;
    dictionary().set("forceWebsockets", force);
}

void VXIMClientConfiguration::setShouldLog(bool log) {
    shouldLog_ = log;
    dictionary().set("log", log);
}

void VXIMClientConfiguration::setAutoReconnect(bool reconnect) {
    autoReconnect_ = reconnect;
    dictionary().set("reconnects", reconnect);
}

void VXIMClientConfiguration::setReconnectAttempts(std::int64_t attempts) {
    reconnectAttempts_ = attempts;
    dictionary().set("reconnectAttempts", attempts);
}

void VXIMClientConfiguration::setReconnectWait(std::int64_t seconds) {
    reconnectWait_ = seconds;
    dictionary().set("reconnectWait", seconds);
}

void VXIMClientConfiguration::setSecure(bool secure) {
    secure_ = secure;
    dictionary().set("secure", secure);
}

void VXIMClientConfiguration::setSelfSigned(bool selfSigned) {
    selfSigned_ = selfSigned;
    dictionary().set("selfSigned", selfSigned);
}

const vexim::Class& VXIMClientConfiguration::runtimeClass() const {
    static const vexim::Class& cls = vexim::Class::declare("VXIMClientConfiguration", &Object::staticClass());
    return cls;
}

vexim::Dictionary& VXIMClientConfiguration::dictionary() {
    if (!dictionary_) dictionary_.emplace();
    return *dictionary_;
}

const vexim::Dictionary& VXIMClientConfiguration::dictionary() const noexcept {
    static const vexim::Dictionary& none = *new vexim::Dictionary;
    return dictionary_ ? *dictionary_ : none;
}

void VXIMClientConfiguration::setDictionary(std::optional<vexim::Dictionary> dictionary) { dictionary_ = std::move(dictionary); }

namespace vexim {

namespace {

struct Slot {
    Mutex mutex;
    std::shared_ptr<VXIMClientConfiguration> configuration VEXIM_GUARDED_BY(mutex);
};

/// Requests may still be built while the process exits, so it is never destroyed.
Slot& slot() {
    static Slot& slot = *new Slot;
    return slot;
}

}  // namespace

ConfigurationSlot& ConfigurationSlot::operator=(std::shared_ptr<VXIMClientConfiguration> configuration) {
    {
        MutexLock lock(slot().mutex);
        slot().configuration.swap(configuration);
    }
    return *this;  // the previous one, if it was the last reference, is released here, without the lock
}

std::shared_ptr<VXIMClientConfiguration> ConfigurationSlot::get() const {
    MutexLock lock(slot().mutex);
    return slot().configuration;
}

}  // namespace vexim

constinit vexim::ConfigurationSlot vxim_configuration;
