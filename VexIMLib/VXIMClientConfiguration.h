#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "VexIMLib/Foundation/Dictionary.h"
#include "VexIMLib/Foundation/Export.h"
#include "VexIMLib/Foundation/Object.h"
#include "VexIMLib/Foundation/URL.h"

/// What a client needs before it connects: the application's credentials, the service's origin and
/// the options of the live connection. Change it on the main thread only.
///
///     auto configuration = VXIMClientConfiguration::defaultConfiguration();
///     configuration->setAppId("app");
///     configuration->setClientKey("key");
///     configuration->setAutoReconnect(true);
///
/// Each connection option stands twice: in its property, and, once its setter has run, under its
/// option name in `dictionary`, which a login hands to the connection. An option never set is not
/// handed over, so the connection's own default applies.
class VEXIM_EXPORT VXIMClientConfiguration final : public vexim::Object {
public:
    using Object::Object;

    /// The service's default origin, the namespace "/chat", and WebSockets only.
    static std::shared_ptr<VXIMClientConfiguration> defaultConfiguration();
    /// Everything nil, false or 0, and no options.
    static std::shared_ptr<VXIMClientConfiguration> init();

    /// Sent with every request and every login.
    const std::optional<std::string>& appId() const noexcept { return appId_; }
    void setAppId(std::optional<std::string> appId) { appId_ = std::move(appId); }
    /// Signs every request and every login; never sent itself.
    const std::optional<std::string>& clientKey() const noexcept { return clientKey_; }
    void setClientKey(std::optional<std::string> clientKey) { clientKey_ = std::move(clientKey); }
    /// Names this device's installation of the application.
    const std::optional<std::string>& installationId() const noexcept { return installationId_; }
    void setInstallationId(std::optional<std::string> installationId) {
        installationId_ = std::move(installationId);
    }
    /// The origin of both the live connection and the REST interface.
    const std::optional<vexim::URL>& socketURL() const noexcept { return socketURL_; }
    void setSocketURL(std::optional<vexim::URL> url) { socketURL_ = std::move(url); }
    /// The Socket.IO namespace.
    const std::optional<std::string>& nsp() const noexcept { return nsp_; }
    void setNsp(std::optional<std::string> nsp) { nsp_ = std::move(nsp); }

    /// Option "forcePolling": HTTP long-polling only.
    bool forcePolling() const noexcept { return forcePolling_; }
    void setForcePolling(bool force);
    /// Option "forceWebsockets": no fallback to polling.
    bool forceWebsockets() const noexcept { return forceWebsockets_; }
    void setForceWebsockets(bool force);
    /// Option "log": the connection's own log.
    bool shouldLog() const noexcept { return shouldLog_; }
    void setShouldLog(bool log);
    /// Option "reconnects": whether a lost connection is built up again.
    bool autoReconnect() const noexcept { return autoReconnect_; }
    void setAutoReconnect(bool reconnect);
    /// Option "reconnectAttempts": how often; negative is without limit.
    std::int64_t reconnectAttempts() const noexcept { return reconnectAttempts_; }
    void setReconnectAttempts(std::int64_t attempts);
    /// Option "reconnectWait": seconds before the first attempt.
    std::int64_t reconnectWait() const noexcept { return reconnectWait_; }
    void setReconnectWait(std::int64_t seconds);
    /// Option "secure": TLS even where the URL is a plain one.
    bool secure() const noexcept { return secure_; }
    void setSecure(bool secure);
    /// Option "selfSigned": accept a self-signed certificate.
    bool selfSigned() const noexcept { return selfSigned_; }
    void setSelfSigned(bool selfSigned);

    // Whom to trust, for the live connection and for REST; docs/guide/trust.md says how
    // certificates are judged. nullopt or an empty list takes the option away. Raises
    // NSInvalidArgumentException for an empty text and for what is not a pin; what the dictionary
    // gets past these is refused when it is used.

    /// Option "caFile": path of a PEM file with the authorities to trust, instead of the system's.
    const std::optional<std::string>& caFile() const noexcept { return caFile_; }
    void setCaFile(std::optional<std::string> path);
    /// Option "caPEM": the same as text; wins over the file.
    const std::optional<std::string>& caPEM() const noexcept { return caPEM_; }
    void setCaPEM(std::optional<std::string> text);
    /// Option "pinnedKeys": the server's key must be one of these. Each is the base64 of the
    /// SHA-256 digest of a key (SPKI, RFC 7469), which has 44 characters.
    const std::vector<std::string>& pinnedKeys() const noexcept { return pinnedKeys_; }
    void setPinnedKeys(std::vector<std::string> pins);
    /// Whether `text` has the form of a pin.
    static bool isPin(std::string_view text) noexcept;

    /// The options by name, to be read and written in place; a login does not change them.
    /// docs/socketio.md lists them, and docs/guide/trust.md says more about "caFile", "caPEM",
    /// "pinnedKeys" and "selfSigned", which count for REST, too.
    vexim::Dictionary& dictionary();
    const vexim::Dictionary& dictionary() const noexcept;
    /// Replaces them as they stand (nullopt: an empty one at the next read). The properties stay.
    void setDictionary(std::optional<vexim::Dictionary> dictionary);

    const vexim::Class& runtimeClass() const override;

private:
    void setText(const char* option, const std::optional<std::string>& text);

    std::optional<std::string> appId_;
    std::optional<std::string> clientKey_;
    std::optional<std::string> installationId_;
    std::optional<vexim::URL> socketURL_;
    std::optional<std::string> nsp_;
    bool forcePolling_ = false;
    bool forceWebsockets_ = false;
    bool shouldLog_ = false;
    bool autoReconnect_ = false;
    std::int64_t reconnectAttempts_ = 0;
    std::int64_t reconnectWait_ = 0;
    bool secure_ = false;
    bool selfSigned_ = false;
    std::optional<std::string> caFile_;
    std::optional<std::string> caPEM_;
    std::vector<std::string> pinnedKeys_;
    std::optional<vexim::Dictionary> dictionary_;
};

namespace vexim {

/// A place for a shared configuration that reads and writes like a `shared_ptr`, from any thread.
/// Never destroyed.
class VEXIM_EXPORT ConfigurationSlot {
public:
    constexpr ConfigurationSlot() noexcept = default;
    ConfigurationSlot(const ConfigurationSlot&) = delete;
    ConfigurationSlot& operator=(const ConfigurationSlot&) = delete;

    // nullptr empties the slot, and is what an empty one gives.
    ConfigurationSlot& operator=(std::shared_ptr<VXIMClientConfiguration> configuration);
    std::shared_ptr<VXIMClientConfiguration> get() const;
    operator std::shared_ptr<VXIMClientConfiguration>() const { return get(); }
    /// Keeps the configuration alive for the whole expression.
    std::shared_ptr<VXIMClientConfiguration> operator->() const { return get(); }
    explicit operator bool() const { return get() != nullptr; }
    friend bool operator==(const ConfigurationSlot& slot,
                           const std::shared_ptr<VXIMClientConfiguration>& configuration) {
        return slot.get() == configuration;
    }
    friend bool operator==(const ConfigurationSlot& slot, std::nullptr_t) {
        return slot.get() == nullptr;
    }
};

}  // namespace vexim

/// The configuration of the client that was made last: every REST request takes the application id,
/// the client key and the origin from it. nullptr before any client was made.
VEXIM_EXPORT extern vexim::ConfigurationSlot vxim_configuration;
