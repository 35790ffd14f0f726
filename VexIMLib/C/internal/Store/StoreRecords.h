#pragma once

#include <cstdint>
#include <string>

#include "VexIMLib/C/internal/Records.h"
#include "VexIMLib/Store/VXIMMessageStore.h"

// Writes a store's data as JSON and appends it to a text. Main thread.

namespace vexim::c {

// Kinds, directions and states use the words of VXIMMessageStore::exportJSONLines.
void writeStored(std::string& out, const VXIMConversationId& id);
void writeStored(std::string& out, const VXIMStorePosition& position);
void writeStored(std::string& out, const VXIMStoredMessage& message);
void writeStored(std::string& out, const VXIMConversation& conversation);
void writeStored(std::string& out, const VXIMStoredGap& gap);
void writeStored(std::string& out, const VXIMStoreDamage& damage);
/// Writes the store's data and its number.
void writeStore(std::string& out, std::int64_t number, const VXIMMessageStore& store);

/// Lets `ObjectWriter` and the lists find `writeStored`.
template <class T>
struct Stored {
    const T& value;
};
template <class T>
Stored(const T&) -> Stored<T>;  // clang 16 deduces none for an aggregate
template <class T>
void write(std::string& out, const Stored<T>& stored) {
    writeStored(out, stored.value);
}

template <class T>
void writeStored(std::string& out, const std::vector<T>& elements) {
    out += '[';
    for (const T& element : elements) {
        if (&element != elements.data()) out += ',';
        writeStored(out, element);
    }
    out += ']';
}

}  // namespace vexim::c
