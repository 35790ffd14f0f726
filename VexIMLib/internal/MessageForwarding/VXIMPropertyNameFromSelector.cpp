#include "VexIMLib/VXIMPropertyNameFromSelector.h"

#include <cstddef>

std::optional<std::string> VXIMPropertyNameFromSelector(const vexim::Class& cls,
                                                        vexim::Selector selector) {
    constexpr char kCaseBit = 0x20;
    constexpr std::size_t kPrefix = 3;      // "set"
    constexpr std::size_t kSetterMore = 4;  // "set" and the colon at the end

    std::string name = selector.text();
    if (name.starts_with("set")) {
        // A getter such as "settings" is also treated as a setter, and no property is found.
        // Callers rely on this simple rule.
        name = name.size() > kSetterMore ? name.substr(kPrefix, name.size() - kSetterMore)
                                         : std::string(1, '\0');
        name.front() = static_cast<char>(name.front() + kCaseBit);
    }
    // the name is a C string
    name.resize(name.find('\0') == std::string::npos ? name.size() : name.find('\0'));
    if (cls.property(name)) return name;
    if (name.empty() || name.front() < 'a' || name.front() > 'z') return std::nullopt;
    name.front() = static_cast<char>(name.front() - kCaseBit);
    if (cls.property(name)) return name;
    return std::nullopt;
}
