#include "VexIMLib/Store/VXIMStoreTypes.h"

#include "VexIMLib/Store/VXIMStoreErrors.h"

const char* const VXIMStoreErrorDomain = "VXIMStoreErrorDomain";

std::string VXIMStoredMessage::text() const {
    if (mediaType != VXIMMessageMediaTypeText) return {};
    return payload.get("content").get("body").asString().value_or("");
}

std::shared_ptr<VXIMMessage> VXIMStoredMessage::message() const { return VXIMMessage::initWithPayloadDictionary(payload); }
