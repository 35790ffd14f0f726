#include "VexIMLib/VXIMClientConfiguration.h"

#include <algorithm>
#include <utility>

#include "VexIMLib/Foundation/Array.h"
#include "VexIMLib/Foundation/Exception.h"
#include "VexIMLib/Foundation/Runtime/Class.h"
#include "VexIMLib/Foundation/Value.h"
#include "VexIMLib/VXIMMetrics.h"
#include "VexIMLib/internal/Foundation/Text/Base64.h"
#include "VexIMLib/internal/Foundation/Threads/SharedSlot.h"

#ifndef VEXIM_DEFAULT_BASE_URL
#error "the build names the service's default origin"
#endif

std::shared_ptr<VXIMClientConfiguration> VXIMClientConfiguration::init() {
    return vexim::create<VXIMClientConfiguration>();
}

std::shared_ptr<VXIMClientConfiguration> VXIMClientConfiguration::defaultConfiguration() {
    auto configuration = init();
    configuration->setSocketURL(vexim::URL::parse(VEXIM_DEFAULT_BASE_URL));
    configuration->setNsp("/chat");
    configuration->setForceWebsockets(true);
    return configuration;
}

// Each setter writes its option even if the value is the default: an explicit "no" is passed on, an
// unset option is not.

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

void VXIMClientConfiguration::setCaFile(std::optional<std::string> path) {
    setText("caFile", path);
    caFile_ = std::move(path);
}

void VXIMClientConfiguration::setCaPEM(std::optional<std::string> text) {
    setText("caPEM", text);
    caPEM_ = std::move(text);
}

void VXIMClientConfiguration::setText(const char* option, const std::optional<std::string>& text) {
    if (text && text->empty())
        throw vexim::Exception(vexim::kInvalidArgumentException,
                               std::string(option) + " must not be empty.");
    dictionary().setOrRemove(option, text);
}

bool VXIMClientConfiguration::isPin(std::string_view text) noexcept {
    constexpr std::size_t kDigestBytes = 32;
    const auto digest = vexim::decodeBase64(text);
    // Encode it again and compare, because several texts decode to the same bytes.
    return digest && digest->size() == kDigestBytes && vexim::encodeBase64(*digest) == text;
}

void VXIMClientConfiguration::setPinnedKeys(std::vector<std::string> pins) {
    if (!std::ranges::all_of(pins, isPin)) {
        throw vexim::Exception(
            vexim::kInvalidArgumentException,
            "A pin must be the base64 of a key's SHA-256 digest, 44 characters.");
    }
    if (pins.empty()) {
        dictionary().remove("pinnedKeys");
    } else {
        dictionary().set("pinnedKeys", vexim::Array::fromStrings(pins));
    }
    pinnedKeys_ = std::move(pins);
}

std::shared_ptr<VXIMMetrics> VXIMClientConfiguration::metrics() const {
    return dictionary().get("metrics").as<VXIMMetrics>();
}

void VXIMClientConfiguration::setMetrics(const std::shared_ptr<VXIMMetrics>& metrics) {
    if (metrics) {
        dictionary().set("metrics", metrics);
    } else {
        dictionary().remove("metrics");
    }
}

const vexim::Class& VXIMClientConfiguration::runtimeClass() const {
    static const vexim::Class& cls =
        vexim::Class::declare("VXIMClientConfiguration", &Object::staticClass());
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

void VXIMClientConfiguration::setDictionary(std::optional<vexim::Dictionary> dictionary) {
    dictionary_ = std::move(dictionary);
}

namespace vexim {

namespace {

/// Never destroyed, because requests may be made while the process exits.
detail::SharedSlot<VXIMClientConfiguration>& slot() {
    static auto& slot = *new detail::SharedSlot<VXIMClientConfiguration>;
    return slot;
}

}  // namespace

ConfigurationSlot& ConfigurationSlot::operator=(
    std::shared_ptr<VXIMClientConfiguration> configuration) {
    slot().set(std::move(configuration));
    return *this;
}

std::shared_ptr<VXIMClientConfiguration> ConfigurationSlot::get() const { return slot().get(); }

}  // namespace vexim

constinit vexim::ConfigurationSlot vxim_configuration;
