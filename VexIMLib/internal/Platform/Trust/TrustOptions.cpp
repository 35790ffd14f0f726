// How the options are read. Trust.cpp applies them; it also sets the lowest TLS version.
#include "VexIMLib/internal/Platform/Trust/TrustOptions.h"

#include <optional>
#include <string_view>
#include <utility>

#include "VexIMLib/Foundation/Array.h"
#include "VexIMLib/Foundation/Value.h"
#include "VexIMLib/VXIMClientConfiguration.h"
#include "VexIMLib/internal/Foundation/Text/Base64.h"

namespace vexim {
namespace {

std::optional<std::string> readPin(std::string_view text) {
    if (!VXIMClientConfiguration::isPin(text)) return std::nullopt;
    return decodeBase64(text);
}

/// An empty text or list would trust more than intended.
std::string readText(const Value& value, const char* key, std::string& into) {
    auto text = value.asString();
    if (!text || text->empty())
        return std::string("Option \"") + key + "\" must be a nonempty string.";
    into = *std::move(text);
    return {};
}

std::string readPins(const Value& value, std::vector<std::string>& pins) {
    const Array* const list = value.asArray();
    if (!list || list->empty())
        return "Option \"pinnedKeys\" must be a list with at least one pin.";
    for (std::size_t i = 0; i < list->size(); ++i) {
        const auto text = list->get(i).asStringView();
        auto pin = text ? readPin(*text) : std::nullopt;
        if (!pin) {
            return "Entry " + std::to_string(i + 1) +
                   " of option \"pinnedKeys\" is not a pin: it must be the base64 of a key's SHA-256 digest, 44 characters.";
        }
        pins.push_back(*std::move(pin));
    }
    return {};
}

}  // namespace

TrustReading readTrustOptions(const Dictionary& options) {
    TrustReading reading;
    auto& [trust, fault] = reading;
    if (const Value* value = options.find("selfSigned"))
        trust.acceptSelfSigned = value->isBoolean() && value->boolean();
    if (const Value* value = options.find("caFile"))
        fault = readText(*value, "caFile", trust.authorityFile);
    if (const Value* value = options.find("caPEM"); value && fault.empty())
        fault = readText(*value, "caPEM", trust.authorityPEM);
    if (const Value* value = options.find("pinnedKeys"); value && fault.empty())
        fault = readPins(*value, trust.pins);
    return reading;
}

}  // namespace vexim
