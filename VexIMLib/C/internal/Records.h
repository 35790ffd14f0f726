#pragma once

#include <concepts>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>
#include <vector>

#include "VexIMLib/Foundation/Error.h"
#include "VexIMLib/Foundation/Value.h"
#include "VexIMLib/VXIMFriendInfo.h"
#include "VexIMLib/VXIMGroup.h"
#include "VexIMLib/VXIMMessage.h"
#include "VexIMLib/VXIMPassenger.h"
#include "VexIMLib/VXIMRoom.h"
#include "VexIMLib/VXIMUser.h"

// Writes the library's objects as JSON and appends them to a text. nil is left out. Main thread,
// except for plain values and errors.

namespace vexim::c {

/// Any value. Values without a JSON form are converted: bytes to {"base64": …}, objects to their
/// own form, infinity and NaN to null.
void write(std::string& out, const Value& value);
void write(std::string& out, std::string_view text);
void write(std::string& out, std::same_as<bool> auto value) { out += value ? "true" : "false"; }
void write(std::string& out, std::int64_t number);
inline void write(std::string& out, std::int32_t number) { write(out, std::int64_t{number}); }
void write(std::string& out, double number);
void write(std::string& out, const Error& error);
void write(std::string& out, VXIMMessage& message);
void write(std::string& out, const VXIMMessageTarget& target);
void write(std::string& out, const VXIMFriendInfo& info);
void write(std::string& out, const VXIMUser& user);
void write(std::string& out, VXIMGroup& group);
void write(std::string& out, const VXIMRoom& room);
void write(std::string& out, const VXIMPassenger& passenger);

template <class T>
void write(std::string& out, const std::shared_ptr<T>& object) {
    if (object) {
        write(out, *object);
    } else {
        out += "null";
    }
}

template <class T>
void write(std::string& out, const std::vector<T>& elements) {
    char before = '[';
    for (const auto& element : elements) {
        out += before;
        write(out, element);
        before = ',';
    }
    out += elements.empty() ? "[]" : "]";
}

/// Returns the beginning of an event, up to its name. Reuses the memory of `text`. Append the
/// event's arguments and the closing brace.
std::string begunEvent(std::string_view name, std::string text = {});
template <class T>
void append(std::string& text, std::string_view name, const T& argument) {
    text.append(",\"").append(name).append("\":");
    write(text, argument);
}

/// Writes an object's entries, one after the other. The destructor closes it.
class ObjectWriter {
public:
    explicit ObjectWriter(std::string& out) : out_(out) {}
    ObjectWriter(const ObjectWriter&) = delete;
    ObjectWriter& operator=(const ObjectWriter&) = delete;
    ~ObjectWriter() { out_ += before_ == '{' ? "{}" : "}"; }

    /// `name` is a literal that needs no escape. nil is left out.
    template <std::size_t N, class T>
    ObjectWriter& add(const char (&name)[N], T&& value) {
        using Plain = std::remove_cvref_t<T>;
        if constexpr (std::is_same_v<Plain, Value>) {
            if (value.isNil()) return *this;
        }
        if constexpr (std::is_same_v<Plain, std::optional<std::string>>) {
            return value ? add(name, std::string_view(*value)) : *this;
        } else {
            key(name);
            write(out_, std::forward<T>(value));
            return *this;
        }
    }

private:
    // Appends everything at once, because an event has a dozen keys.
    template <std::size_t N>
    void key(const char (&name)[N]) {
        char text[N + 3];
        text[0] = std::exchange(before_, ',');
        text[1] = '"';
        std::memcpy(text + 2, name, N - 1);
        text[N + 1] = '"';
        text[N + 2] = ':';
        out_.append(text, sizeof text);
    }

    std::string& out_;
    char before_ = '{';
};

}  // namespace vexim::c
