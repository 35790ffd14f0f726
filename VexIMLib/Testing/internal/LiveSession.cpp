#include "VexIMLib/Testing/internal/LiveSession.h"

#include <utility>

#include "VexIMLib/Foundation/JSON.h"
#include "VexIMLib/Testing/internal/ServiceError.h"

namespace vexim::testing::fake {

namespace {

Dictionary openPacket(const FakeService::Options& options, const std::string& id) {
    Dictionary packet{{"sid", id},
                      {"upgrades", Array()},
                      {"pingInterval", options.pingInterval.count()},
                      {"pingTimeout", options.pingTimeout.count()}};
    if (options.socketIOLine > 3) packet.set("maxPayload", 1'000'000);
    return packet;
}

}  // namespace

LiveSession::LiveSession(const FakeService::Options& options, std::string id, std::string auth,
                         LiveLink& link, Listener& listener)
    : line_(options.socketIOLine),
      nsp_(options.nsp),
      open_(openPacket(options, id)),
      id_(std::move(id)),
      auth_(std::move(auth)),
      link_(link),
      listener_(listener) {}

void LiveSession::start() {
    send("0" + writeJSON(open_).text);
    if (line_ == 2) send("40");
}

void LiveSession::received(std::string_view text) {
    if (isSilent_ || text.empty()) return;
    const auto rest = text.substr(1);
    switch (text.front()) {
        case '1': return link_.cut();
        case '2': return send("3" + std::string(rest));
        case '4': return handle(decoder_.text(rest));
        default: return;  // pongs, and packets that servers ignore
    }
}

void LiveSession::receivedBytes(std::string_view bytes) {
    if (isSilent_) return;
    if (line_ == 2 && !bytes.empty()) bytes.remove_prefix(1);  // the packet's type
    handle(decoder_.attachment(Data(bytes)));
}

void LiveSession::handle(const PacketDecoder::Result& result) {
    switch (result.status) {
        case PacketDecoder::Status::Malformed: return link_.cut();
        case PacketDecoder::Status::Partial: return;
        case PacketDecoder::Status::Complete: break;
    }
    const Packet& packet = result.packet;
    const std::string_view nsp = std::string_view(packet.nsp).substr(0, packet.nsp.find('?'));
    switch (packet.type) {
        case PacketType::Connect: return join(nsp);
        case PacketType::Disconnect:
            if (nsp == nsp_) leave();
            return;
        case PacketType::Event:
            if (nsp == nsp_ && isJoined_)
                listener_.sessionSaid(*this, packet.payload.get(0).description(),
                                      packet.payload.get(1));
            return;
        case PacketType::Ack:
        case PacketType::Error: return;
    }
}

void LiveSession::join(std::string_view nsp) {
    const std::string prefix = nsp == "/" ? "" : std::string(nsp) + ",";
    if (nsp != nsp_ && nsp != "/") {
        return send("44" + prefix +
                    (line_ == 2 ? "\"Invalid namespace\"" : R"({"message":"Invalid namespace"})"));
    }
    send("40" + prefix + (line_ == 2 ? "" : writeJSON(Dictionary{{"sid", id_}}).text));
    if (nsp == nsp_ && !std::exchange(isJoined_, true)) listener_.sessionJoined(*this);
}

void LiveSession::leave() {
    if (std::exchange(isJoined_, false)) listener_.sessionLeft(*this);
}

void LiveSession::ended() {
    leave();
    listener_.sessionEnded(*this);
}

void LiveSession::emit(std::string_view event, const Array& items) {
    auto [packet, fault] = encodeEvent(nsp_, std::nullopt, event, items);
    must(fault == EncodeFault::None && packet.attachments.empty(), errors::invalidValue,
         "The items of an event must be JSON.");
    send(std::move(packet.text));
}

void LiveSession::send(std::string text) {
    if (!isSilent_) link_.send(std::move(text));
}

}  // namespace vexim::testing::fake
