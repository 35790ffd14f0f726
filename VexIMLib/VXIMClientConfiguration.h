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

class VXIMMetrics;

/// What a client needs before it connects: the application's credentials, the service's origin and
/// the options of the live connection. Change it on the main thread only.
///
///     auto configuration = VXIMClientConfiguration::defaultConfiguration();
///     configuration->setAppId("app");
///     configuration->setClientKey("key");
///     configuration->setAutoReconnect(true);
///
/// Setting an option property also writes it to `dictionary`, under the option's name. A login
/// passes this dictionary to the connection. An option that was never set is not in it, so the
/// connection's default applies.
///
/// Change the configuration of a running client with care: requests use the new credentials at
/// once, the live connection only after the next login. Several clients may share one
/// configuration.
class VEXIM_EXPORT VXIMClientConfiguration final : public vexim::Object {
public:
    using Object::Object;

    /// A configuration with the service's default origin, the namespace "/chat", and WebSockets
    /// only.
    static std::shared_ptr<VXIMClientConfiguration> defaultConfiguration();
    /// A configuration with everything nil, false or 0, and no options.
    static std::shared_ptr<VXIMClientConfiguration> init();

    /// The application's id. Sent with every request and every login. A login raises if it is nil.
    const std::optional<std::string>& appId() const noexcept { return appId_; }
    void setAppId(std::optional<std::string> appId) { appId_ = std::move(appId); }
    /// The key that signs every request and every login. It is never sent. A login raises if it is
    /// nil.
    const std::optional<std::string>& clientKey() const noexcept { return clientKey_; }
    void setClientKey(std::optional<std::string> clientKey) { clientKey_ = std::move(clientKey); }
    /// The id of this installation of the application on this device. `loginWithUserId` raises if
    /// it is nil.
    const std::optional<std::string>& installationId() const noexcept { return installationId_; }
    void setInstallationId(std::optional<std::string> installationId) {
        installationId_ = std::move(installationId);
    }
    /// The origin of the live connection and of the REST interface, such as
    /// "https://chat.example.org:8443". If it is nil, the connection of a login reports
    /// `VXIMConnectionErrorBadAddress`, and requests fail with -1000 as the underlying error.
    const std::optional<vexim::URL>& socketURL() const noexcept { return socketURL_; }
    void setSocketURL(std::optional<vexim::URL> url) { socketURL_ = std::move(url); }
    /// The Socket.IO namespace of the live connection, such as "/chat"; nil means "/".
    const std::optional<std::string>& nsp() const noexcept { return nsp_; }
    void setNsp(std::optional<std::string> nsp) { nsp_ = std::move(nsp); }

    /// Option "forcePolling": use HTTP long-polling only, for networks that block WebSockets.
    bool forcePolling() const noexcept { return forcePolling_; }
    void setForcePolling(bool force);
    /// Option "forceWebsockets": use a WebSocket from the start and never fall back to polling.
    bool forceWebsockets() const noexcept { return forceWebsockets_; }
    void setForceWebsockets(bool force);
    /// Option "log": whether the connection writes its own log, to the log sink or to standard
    /// error. It never contains message texts.
    bool shouldLog() const noexcept { return shouldLog_; }
    void setShouldLog(bool log);
    /// Option "reconnects": whether to reconnect after the connection is lost. The client then logs
    /// in again by itself.
    bool autoReconnect() const noexcept { return autoReconnect_; }
    void setAutoReconnect(bool reconnect);
    /// Option "reconnectAttempts": the most attempts to reconnect after a loss; a negative number
    /// means no limit. When all have failed, the delegate gets `clientDidDisconnect`.
    std::int64_t reconnectAttempts() const noexcept { return reconnectAttempts_; }
    void setReconnectAttempts(std::int64_t attempts);
    /// Option "reconnectWait": the longest wait before the first attempt to reconnect, in seconds.
    /// The limit doubles with each attempt; the wait itself is random.
    std::int64_t reconnectWait() const noexcept { return reconnectWait_; }
    void setReconnectWait(std::int64_t seconds);
    /// Option "secure": use TLS even if the URL says http or ws. A URL with https or wss always
    /// uses TLS.
    bool secure() const noexcept { return secure_; }
    void setSecure(bool secure);
    /// Option "selfSigned": accept a self-signed certificate. Then anybody can pretend to be the
    /// server, so use it for development only; `setCaFile` or `setPinnedKeys` is safer.
    bool selfSigned() const noexcept { return selfSigned_; }
    void setSelfSigned(bool selfSigned);

    // Which servers to trust, for the live connection and for REST. docs/guide/trust.md explains
    // how certificates are checked. nullopt or an empty list removes the option. The setters raise
    // NSInvalidArgumentException for an empty text and for a malformed pin. Bad values written
    // directly to `dictionary` are refused when they are used.

    /// Option "caFile": path of a PEM file with the authorities to trust, instead of the system's.
    const std::optional<std::string>& caFile() const noexcept { return caFile_; }
    void setCaFile(std::optional<std::string> path);
    /// Option "caPEM": the same authorities as PEM text. It takes precedence over the file.
    const std::optional<std::string>& caPEM() const noexcept { return caPEM_; }
    void setCaPEM(std::optional<std::string> text);
    /// Option "pinnedKeys": the server's key must be one of these. Each is the base64 of the
    /// SHA-256 digest of a key (SPKI, RFC 7469), which has 44 characters.
    const std::vector<std::string>& pinnedKeys() const noexcept { return pinnedKeys_; }
    void setPinnedKeys(std::vector<std::string> pins);
    /// Whether `text` has the form of a pin.
    static bool isPin(std::string_view text) noexcept;

    /// Option "metrics": counts the client's connections and, while this configuration is
    /// `vxim_configuration`, the REST requests. Many configurations may share one object. nullptr,
    /// the default, counts nothing.
    std::shared_ptr<VXIMMetrics> metrics() const;
    void setMetrics(const std::shared_ptr<VXIMMetrics>& metrics);

    /// The options by name. Read and write them in place; a login does not change them.
    /// docs/socketio.md lists them. docs/guide/trust.md says more about "caFile", "caPEM",
    /// "pinnedKeys" and "selfSigned", which apply to REST as well.
    vexim::Dictionary& dictionary();
    const vexim::Dictionary& dictionary() const noexcept;
    /// Replaces the dictionary (nullopt: with an empty one). The properties do not change.
    void setDictionary(std::optional<vexim::Dictionary> dictionary);

    /// The runtime record of the class.
    const vexim::Class& runtimeClass() const override;

private:
    void setText(const char* option, const std::optional<std::string>& text);

    // The options are kept twice: here as last set, and in the dictionary, which logins use.
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

/// Holds a shared configuration. Use it like a `shared_ptr`, from any thread. It is never
/// destroyed.
class VEXIM_EXPORT ConfigurationSlot {
public:
    constexpr ConfigurationSlot() noexcept = default;
    ConfigurationSlot(const ConfigurationSlot&) = delete;
    ConfigurationSlot& operator=(const ConfigurationSlot&) = delete;

    // Setting nullptr empties the slot; an empty slot returns nullptr. Call from any thread; change
    // it on the main thread only.
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

/// The configuration of the client that was made last. Every REST request uses its application id,
/// client key and origin. nullptr before the first client is made.
VEXIM_EXPORT extern vexim::ConfigurationSlot vxim_configuration;
