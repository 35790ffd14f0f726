#pragma once

#include <cstddef>
#include <functional>
#include <string>
#include <string_view>

#include "VexIMLib/Foundation/Export.h"

namespace vexim {

/// The name of a message, such as "uid" or "setUid:". Each name is stored once, until the process
/// ends, so selectors are compared by address and copies are free. Making one from text takes a
/// lock, so keep selectors that you use often. Call from any thread.
///
///     static const vexim::Selector kUid("uid");
///     const vexim::Value uid = user->perform(kUid);
///     user->perform("setOnline:", {true});  // a text becomes a selector
class VEXIM_EXPORT Selector {
public:
    /// The null selector, which names no message.
    constexpr Selector() noexcept = default;
    // The selector of this name. An empty text is a valid name. nullptr is not allowed. The name of
    // a setter ends with a colon, that of a getter does not; nothing checks the form. Names are
    // never freed, so do not make selectors from texts that a server sends.
    Selector(std::string_view text);
    Selector(const char* text) : Selector(std::string_view(text)) {}
    Selector(const std::string& text) : Selector(std::string_view(text)) {}

    /// Whether it is the null selector.
    bool isNull() const noexcept { return text_ == nullptr; }
    /// The name; empty for the null selector. The reference is valid until the process ends.
    const std::string& text() const noexcept;

    /// Whether both have the same name. Two null selectors are equal.
    friend bool operator==(Selector, Selector) noexcept = default;

private:
    friend struct std::hash<Selector>;
    /// In the table of all names; nullptr for the null selector.
    const std::string* text_ = nullptr;
};

}  // namespace vexim

/// Makes selectors the keys of a `std::unordered_map`. The hash differs between two runs of the
/// program, because it is that of the address.
template <>
struct std::hash<vexim::Selector> {
    /// Fast: the text is not read.
    std::size_t operator()(vexim::Selector selector) const noexcept {
        return std::hash<const void*>()(selector.text_);
    }
};
