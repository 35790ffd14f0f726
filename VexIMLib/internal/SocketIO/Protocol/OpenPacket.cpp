#include "VexIMLib/internal/SocketIO/Protocol/OpenPacket.h"

#include <cstdint>

#include "VexIMLib/Foundation/JSON.h"
#include "VexIMLib/internal/Foundation/Values/ByteCount.h"

namespace vexim {
namespace {

// The longest time that the servers' own timers accept. Sums of such times cannot overflow.
constexpr std::int64_t kMaxIntervalMillis = 0x7FFF'FFFF;

std::optional<std::chrono::milliseconds> parseInterval(const Value& value) {
    if (!value.isNumber() || value.isBoolean()) return std::nullopt;
    const std::int64_t millis = value.longLongValue();
    if (millis <= 0 || millis > kMaxIntervalMillis) return std::nullopt;
    return std::chrono::milliseconds(millis);
}

}  // namespace

std::optional<OpenPacket> parseOpenPacket(std::string_view json) {
    const JSONResult parsed = parseJSON(json);
    if (!parsed.value.isDictionary()) return std::nullopt;
    OpenPacket open;
    const auto interval = parseInterval(parsed.value.get("pingInterval"));
    const auto timeout = parseInterval(parsed.value.get("pingTimeout"));
    const auto sid = parsed.value.get("sid").asString();
    if (!interval || !timeout || !sid || sid->empty()) return std::nullopt;
    open.sid = *sid;
    open.pingInterval = *interval;
    open.pingTimeout = *timeout;
    if (const Array* upgrades = parsed.value.get("upgrades").asArray())
        open.offersWebSocket = upgrades->contains("websocket");
    const Value& maxPayload = parsed.value.get("maxPayload");
    if (maxPayload.kind() == Value::Kind::Integer && maxPayload.integer() > 0) {
        open.maxPayload = byteCount(maxPayload.integer());
    }
    return open;
}

}  // namespace vexim
