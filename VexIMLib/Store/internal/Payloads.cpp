#include "VexIMLib/Store/internal/Payloads.h"

#include <charconv>
#include <utility>

#include "VexIMLib/Foundation/JSON.h"
#include "VexIMLib/Store/VXIMStoreErrors.h"
#include "VexIMLib/Store/internal/Database.h"
#include "VexIMLib/VXIMErrors.h"

namespace vexim::store {

std::optional<std::int64_t> timeOf(const Dictionary& payload) {
    const Value& time = payload.get("ts");
    const std::int64_t millis = time.longLongValue();
    if (time.isNilOrNull() || millis <= 0) return std::nullopt;
    return millis;
}

VXIMMessageMediaType mediaTypeOf(const Dictionary& payload) {
    return static_cast<VXIMMessageMediaType>(payload.get("content").get("media").intValue());
}

std::optional<std::string> textOf(const Dictionary& payload, const char* field) {
    const Value& value = payload.get(field);
    if (value.kind() == Value::Kind::Integer) return std::to_string(value.integer());
    auto text = value.asString();
    if (!text || text->empty()) return std::nullopt;
    return text;
}

std::int64_t keyNumber(std::string_view key) {
    constexpr std::size_t kDigits = 15;  // 60 bits
    std::int64_t number = 0;
    if (key.size() >= kDigits) {
        const auto read = std::from_chars(key.data(), key.data() + kDigits, number, 16);
        if (read.ec == std::errc() && read.ptr == key.data() + kDigits) return number;
    }
    std::uint64_t hash = 0xcbf29ce484222325U;  // FNV-1a
    for (const char each : key) hash = (hash ^ static_cast<unsigned char>(each)) * 0x100000001b3U;
    return static_cast<std::int64_t>(hash);
}

std::string toJSON(const Dictionary& payload) {
    JSONText json = writeJSON(payload);
    if (json.error)
        fail(VXIMStoreErrorUnusable, "The message's payload cannot be written as JSON.",
             json.error);
    return std::move(json.text);
}

Dictionary fromJSON(std::string_view json) {
    const JSONResult read = parseJSON(json);
    if (!read.value.isDictionary())
        fail(VXIMStoreErrorDamaged, "A stored message cannot be read.", read.error);
    return *read.value.asDictionary();
}

const Value& writerOf(const Dictionary& payload) {
    const Value& from = payload.get("from").get("id");
    return from.isNilOrNull() ? payload.get("speaker") : from;
}

std::string errorToJSON(const ErrorPtr& error) {
    if (!error) return {};
    Dictionary info{{kLocalizedDescriptionKey, error->localizedDescription()}};
    if (isTemporary(error)) info.set(kTemporaryKey, true);
    const JSONText json =
        writeJSON(Dictionary{{"domain", error->domain()}, {"code", error->code()}, {"info", info}});
    // The service's text may be invalid; domain and code never are.
    return json.error
               ? writeJSON(Dictionary{{"domain", error->domain()}, {"code", error->code()}}).text
               : json.text;
}

}  // namespace vexim::store
