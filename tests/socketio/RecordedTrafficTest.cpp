// The codecs against traffic recorded with real servers, in both directions, and against what is
// malformed.
#include <gtest/gtest.h>

#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "VexIMLib/Foundation/JSON.h"
#include "VexIMLib/Foundation/URL.h"
#include "VexIMLib/internal/Foundation/Text/Base64.h"
#include "VexIMLib/internal/SocketIO/Client/SocketIOOptions.h"
#include "VexIMLib/internal/SocketIO/Protocol/OpenPacket.h"
#include "VexIMLib/internal/SocketIO/Protocol/Packet.h"
#include "VexIMLib/internal/SocketIO/Protocol/Payload.h"

namespace vexim::testing {
namespace {

const Value& recorded() {
    static const Value* const all = [] {
        std::ifstream file(VEXIM_RECORDED_TRAFFIC);
        std::ostringstream text;
        text << file.rdbuf();
        return new Value(parseJSON(text.str()).value);
    }();
    return *all;
}

const Array& table(const char* name) {
    const Array* rows = recorded().get(name).asArray();
    EXPECT_TRUE(rows && !rows->empty()) << name;
    static const Array empty;
    return rows ? *rows : empty;
}

std::string bytesOf(const Value& wire) {
    if (wire.isString()) return *wire.asString();
    return *decodeBase64(*wire.get("b64").asStringView());
}

/// Attachments as the recording writes them.
Value withMarkedData(const Value& value) {
    if (const Data* data = value.asData()) return Dictionary{{"$bin", encodeBase64(data->view())}};
    if (const Array* array = value.asArray()) {
        Array marked;
        for (const Value& element : *array) marked.append(withMarkedData(element));
        return marked;
    }
    if (const Dictionary* dictionary = value.asDictionary()) {
        Dictionary marked;
        for (const auto& [key, element] : *dictionary) marked.set(key, withMarkedData(element));
        return marked;
    }
    return value;
}

Value withData(const Value& value) {
    if (const auto bytes = value.get("$bin").asString()) return Data(*decodeBase64(*bytes));
    if (const Array* array = value.asArray()) {
        Array plain;
        for (const Value& element : *array) plain.append(withData(element));
        return plain;
    }
    if (const Dictionary* dictionary = value.asDictionary()) {
        Dictionary plain;
        for (const auto& [key, element] : *dictionary) plain.set(key, withData(element));
        return plain;
    }
    return value;
}

/// Reads wire bytes the way a session does, and describes them the way the recording does. nil for
/// a protocol error.
class Reader {
public:
    explicit Reader(EngineRevision revision) : revision_(revision) {}

    void read(const std::string& transport, const Value& wire) {
        if (const Array* frames = wire.asArray()) {
            for (const Value& frame : *frames) readFrame(frame);
        } else if (transport == "polling") {
            const std::string body = bytesOf(wire);
            PayloadReader reader(revision_, body);
            while (const auto packet = reader.next()) read(*packet);
            failed_ = failed_ || reader.failed();
        } else {
            readFrame(wire);
        }
    }

    Value result() const { return failed_ ? Value() : Value(packets_); }

private:
    void readFrame(const Value& frame) {
        const std::string bytes = bytesOf(frame);
        const auto packet = frame.isString() ? decodeEngineText(revision_, bytes)
                                             : decodeEngineBinary(revision_, bytes);
        if (packet) {
            read(*packet);
        } else {
            failed_ = true;
        }
    }

    void read(const EnginePacketView& packet) {
        constexpr const char* kNames[] = {"open",    "close",   "ping", "pong",
                                          "message", "upgrade", "noop"};
        Dictionary described{{"type", kNames[static_cast<int>(packet.type)]}};
        if (packet.type == EnginePacketType::Message) return readMessage(packet);
        if (packet.type == EnginePacketType::Open) {
            failed_ = failed_ || !parseOpenPacket(packet.data);
            described.setOrRemove("data", parseJSON(packet.data).value);
        } else if (!packet.data.empty()) {
            described.set("data", packet.data);
        }
        packets_.append(described);
    }

    void readMessage(const EnginePacketView& packet) {
        PacketDecoder::Result result;
        if (packet.content == EnginePacketView::Content::Text) {
            result = decoder_.text(packet.data);
        } else if (packet.content == EnginePacketView::Content::Binary) {
            result = decoder_.attachment(Data(packet.data));
        } else {
            const auto bytes = decodeBase64(packet.data);
            result = bytes ? decoder_.attachment(Data(*bytes)) : PacketDecoder::Result{};
        }
        if (result.status == PacketDecoder::Status::Malformed) failed_ = true;
        if (result.status != PacketDecoder::Status::Complete) return;
        constexpr const char* kNames[] = {"CONNECT", "DISCONNECT", "EVENT", "ACK", "ERROR"};
        Dictionary sio{{"type", kNames[static_cast<int>(result.packet.type)]},
                       {"nsp", result.packet.nsp}};
        if (result.packet.type == PacketType::Error && revision_ == EngineRevision::V4)
            sio.set("type", "CONNECT_ERROR");
        if (result.packet.id) sio.set("id", *result.packet.id);
        sio.setOrRemove("data", withMarkedData(result.packet.payload));
        packets_.append(Dictionary{{"type", "message"}, {"sio", sio}});
    }

    const EngineRevision revision_;
    PacketDecoder decoder_{1 << 20};
    Array packets_;
    bool failed_ = false;
};

/// JSON's numbers compare by value here: 1e+21 and its decimal form are one number.
bool same(const Value& a, const Value& b) {
    return writeJSON(a, JSONFragments::Allow).text == writeJSON(b, JSONFragments::Allow).text;
}

TEST(RecordedTraffic, IsReadAsItWasMeantAndMalformedTrafficIsRefused) {
    for (const Value& vector : table("vectors")) {
        SCOPED_TRACE(vector.get("name").description() + " " + vector.get("wire").description());
        Reader reader(static_cast<EngineRevision>(vector.get("eio").intValue()));
        reader.read(*vector.get("transport").asString(), vector.get("wire"));
        if (*vector.get("verdict").asString() == "ok") {
            EXPECT_TRUE(same(reader.result(), vector.get("decoded")))
                << reader.result().description();
        } else {
            EXPECT_TRUE(reader.result().isNil()) << reader.result().description();
        }
    }
}

/// What we would send for a recorded packet: the Engine.IO packets as text or, for attachments, as
/// {"b64"}.
std::vector<Value> encode(const Value& packet, EngineRevision revision, bool asText) {
    const Value& sio = packet.get("sio");
    const std::string type = sio.get("type").asString().value_or("");
    const std::string nsp = sio.get("nsp").asString().value_or("/");
    EncodedPacket encoded;
    if (type == "CONNECT") encoded = encodeConnect(nsp, sio.get("data"));
    if (type == "DISCONNECT") encoded = encodeDisconnect(nsp);
    if (type == "EVENT" || type == "ACK") {
        Array items = *withData(sio.get("data")).asArray();
        std::optional<std::uint64_t> id;
        if (!sio.get("id").isNil()) id = sio.get("id").unsignedLongLongValue();
        const std::string name = type == "EVENT" ? items.get(0).description() : "";
        if (type == "EVENT") items.remove(0);
        const auto result =
            type == "EVENT" ? encodeEvent(nsp, id, name, items) : encodeAck(nsp, *id, items);
        EXPECT_EQ(result.fault, EncodeFault::None);
        encoded = result.packet;
    }
    std::vector<Value> wires{encoded.text};
    for (const Data& attachment : encoded.attachments) {
        const std::string bytes = std::string(binaryPrefix(revision)) += attachment.view();
        wires.push_back(asText ? Value(encodeAttachmentAsText(revision, attachment.view()))
                               : Value(Dictionary{{"b64", encodeBase64(bytes)}}));
    }
    return wires;
}

TEST(RecordedTraffic, IsWhatTheCodecsWrite) {
    int compared = 0;
    for (const Value& vector : table("vectors")) {
        if (*vector.get("direction").asString() != "out" ||
            *vector.get("verdict").asString() != "ok")
            continue;
        SCOPED_TRACE(vector.get("name").description());
        const auto revision = static_cast<EngineRevision>(vector.get("eio").intValue());
        const bool isPolling = *vector.get("transport").asString() == "polling";
        const bool asText = isPolling || vector.get("name").description().find("as base64 text") !=
                                             std::string::npos;
        std::vector<Value> wires;
        bool isMessage = true;
        for (const Value& packet : *vector.get("decoded").asArray()) {
            isMessage = isMessage && *packet.get("type").asString() == "message";
            for (auto& wire : encode(packet, revision, asText)) wires.push_back(std::move(wire));
        }
        // Attachments are numbered in the order of the walk, which need not be the recording
        // client's.
        if (!isMessage || vector.get("name").description().find("nested") != std::string::npos)
            continue;
        ++compared;
        if (isPolling) {
            PayloadWriter writer(revision);
            std::size_t expectedSize = 0;
            for (const Value& wire : wires) {
                expectedSize = writer.sizeWith(*wire.asStringView());
                writer.add(*wire.asStringView());
            }
            const std::string body = writer.take();
            EXPECT_EQ(body, bytesOf(vector.get("wire")));
            EXPECT_EQ(body.size(), expectedSize);
        } else {
            const Value expected = vector.get("wire").isArray() ? vector.get("wire")
                                                                : Value(Array{vector.get("wire")});
            EXPECT_EQ(Value(Array(wires)), expected);
        }
    }
    EXPECT_GT(compared, 20);
}

TEST(RecordedTraffic, TellsTheRevisionByTheFirstPollingAnswer) {
    for (const Value& row : table("detect")) {
        if (*row.get("transport").asString() != "polling") continue;
        const auto revision = detectRevision(*row.get("wire").asStringView());
        const bool isAnswered = row.get("status").intValue() == 200;
        EXPECT_EQ(revision.has_value(), isAnswered) << row.description();
        EXPECT_EQ(isAnswered ? static_cast<int>(*revision) : 0,
                  isAnswered ? row.get("detected").intValue() : 0);
    }
}

TEST(RecordedTraffic, ParametersReachTheServerUnchanged) {
    for (const Value& row : table("query")) {
        EXPECT_EQ(encodeConnectParams({{"auth", row.get("value")}}),
                  "auth=" + *row.get("encoded").asString());
    }
    const Dictionary kinds{{"n", 5}, {"on", true}, {"list", Array{1, "a"}}};
    EXPECT_EQ(encodeConnectParams(kinds), "n=5&on=1&list=%5B1%2C%22a%22%5D");
}

TEST(PayloadReader, SurvivesEveryCut) {
    for (const auto revision : {EngineRevision::V3, EngineRevision::V4}) {
        PayloadWriter writer(revision);
        for (const char* packet : {"40/chat,", "42/chat,[\"say\",\"é€😀\"]", "b4AQID/w=="})
            writer.add(packet);
        const std::string body = writer.take();
        for (std::size_t cut = 0; cut < body.size(); ++cut) {
            PayloadReader reader(revision, std::string_view(body).substr(0, cut));
            int packets = 0;
            while (reader.next()) ++packets;
            EXPECT_LE(packets, 3);
            // With lengths, a cut is detected anywhere except between packets; with separators,
            // only if nothing follows one.
            EXPECT_TRUE(reader.failed() || packets > 0) << cut;
        }
    }
}

TEST(PacketDecoder, HoldsToItsLimits) {
    const auto verdict = [](const std::string& text) {
        return PacketDecoder(1024).text(text).status;
    };
    using Status = PacketDecoder::Status;
    EXPECT_EQ(verdict("564-[\"a\"]"), Status::Partial);
    EXPECT_EQ(verdict("565-[\"a\"]"), Status::Malformed) << "more attachments than we take";
    EXPECT_EQ(verdict("2[\"a\"," + std::string(600, '[') + std::string(600, ']') + "]"),
              Status::Malformed)
        << "deep JSON";
    EXPECT_EQ(verdict("218446744073709551615[\"a\"]"), Status::Complete) << "the highest id";
    EXPECT_EQ(verdict("218446744073709551616[\"a\"]"), Status::Malformed);

    PacketDecoder decoder(4);
    EXPECT_EQ(decoder.text("52-[\"a\",{\"_placeholder\":true,\"num\":1}]").status, Status::Partial);
    EXPECT_EQ(decoder.attachment(Data("123", 3)).status, Status::Partial);
    EXPECT_EQ(decoder.attachment(Data("45", 2)).status, Status::Malformed)
        << "attachments that exceed the limit";
}

TEST(PacketEncoder, RefusesWhatServersWould) {
    const auto fault = [](std::string_view name, const Array& items) {
        return encodeEvent("/", {}, name, items).fault;
    };
    Array many;
    for (int i = 0; i < 11; ++i) many.append(Data("x", 1));
    Value deep = Array{};
    for (int i = 0; i < 100'000; ++i) deep = Array{deep};
    EXPECT_EQ(fault("say", many), EncodeFault::TooManyAttachments);
    EXPECT_EQ(fault("say", {deep}), EncodeFault::TooDeep);
    EXPECT_EQ(fault("disconnect", {}), EncodeFault::ReservedName);
    EXPECT_EQ(fault("say", {"\xff"}), EncodeFault::NotUTF8);
    EXPECT_EQ(fault("\xff", {}), EncodeFault::NotUTF8);
    EXPECT_EQ(encodeEvent("/", {}, "a\"b\n", {}).packet.text, "42[\"a\\\"b\\n\"]");
}

}  // namespace
}  // namespace vexim::testing
