#include "VexIMLib/Foundation/Runtime/TypeEncoding.h"

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <string>

#include "VexIMLib/Foundation/Exception.h"
#include "VexIMLib/Foundation/Runtime/Selector.h"
#include "VexIMLib/Foundation/Scalars.h"
#include "VexIMLib/internal/Foundation/Text/ASCII.h"

namespace vexim {

namespace {

/// Reads types one after the other, and removes them from the front of the text.
class TypeReader {
public:
    explicit TypeReader(std::string_view encoding) : whole_(encoding), rest_(encoding) {}

    Type read() {
        const auto begin = rest_;
        while (!rest_.empty() &&
               std::string_view("rnNoORVAj").find(rest_.front()) != std::string_view::npos)
            rest_.remove_prefix(1);
        Type type = readUnqualified();
        type.text = begin.substr(0, begin.size() - rest_.size());
        return type;
    }

private:
    template <class T>
    static Type plain() {
        return {.text = {}, .size = sizeof(T), .alignment = alignof(T), .isObject = false};
    }

    Type readUnqualified() {
        switch (take()) {
            case 'c':
            case 'C': return plain<char>();
            case 'B': return plain<bool>();
            case 's':
            case 'S': return plain<short>();
            case 'i':
            case 'I': return plain<int>();
            case 'l':
            case 'L': return plain<long>();
            case 'q':
            case 'Q': return plain<long long>();
            case 'f': return plain<float>();
            case 'd': return plain<double>();
            case 'D': return plain<long double>();
            case 'v':
            case '?': return {};
            case '#':
            case '*': return plain<void*>();
            case ':': return plain<Selector>();
            case '^': read(); return plain<void*>();
            case 'b':
                return {
                    .text = {}, .size = (takeNumber() + 7) / 8, .alignment = 1, .isObject = false};
            case '@': return readObject();
            case '{':
                return readMembers('}', [](Type& all, const Type& member) {
                    all.size = roundUp(all.size, member.alignment) + member.size;
                });
            case '(':
                return readMembers(')', [](Type& all, const Type& member) {
                    all.size = std::max(all.size, member.size);
                });
            case '[': return readArray();
            default: fail();
        }
    }

    Type readObject() {
        Type type = plain<Value>();
        type.isObject = true;
        if (rest_.starts_with('?')) {
            rest_.remove_prefix(1);  // a block
        } else if (rest_.starts_with('"')) {
            skipQuoted();
        }
        return type;
    }

    Type readArray() {
        const std::size_t count = takeNumber();
        Type type = read();
        type.isObject = false;
        type.size *= count;
        if (take() != ']') fail();
        return type;
    }

    template <class Add>
    Type readMembers(char close, Add add) {
        Type all;
        // the name
        while (!rest_.empty() && rest_.front() != '=' && rest_.front() != close)
            rest_.remove_prefix(1);
        if (rest_.starts_with('=')) rest_.remove_prefix(1);
        while (!rest_.starts_with(close)) {
            if (rest_.starts_with('"')) skipQuoted();  // a member's name
            const Type member = read();
            add(all, member);
            all.alignment = std::max(all.alignment, member.alignment);
        }
        take();
        all.size = roundUp(all.size, all.alignment);
        return all;
    }

    void skipQuoted() {
        const auto end = rest_.find('"', 1);
        if (end == std::string_view::npos) fail();
        rest_.remove_prefix(end + 1);
    }

    char take() {
        if (rest_.empty()) fail();
        const char c = rest_.front();
        rest_.remove_prefix(1);
        return c;
    }

    std::size_t takeNumber() {
        // no real type is larger, and products cannot overflow
        constexpr std::size_t kMost = 1U << 20;
        std::size_t number = 0;
        while (!rest_.empty() && detail::isDigit(rest_.front())) {
            number = number * 10 + static_cast<std::size_t>(take() - '0');
            if (number > kMost) fail();
        }
        return number;
    }

    static std::size_t roundUp(std::size_t size, std::size_t alignment) {
        return (size + alignment - 1) / alignment * alignment;
    }

    [[noreturn]] void fail() const {
        throw Exception(kInvalidArgumentException,
                        "unsupported type encoding '" + std::string(whole_) + "'");
    }

    std::string_view whole_;
    std::string_view rest_;
};

template <class T>
T load(const void* bytes) {
    T value;
    std::memcpy(&value, bytes, sizeof value);
    return value;
}

template <class T>
bool store(T value, void* bytes) {
    std::memcpy(bytes, &value, sizeof value);
    return true;
}

/// Narrow integers wrap, like a C conversion.
template <class T>
bool storeInteger(const Value& number, void* bytes) {
    // the usual case
    if (number.kind() == Value::Kind::Integer)
        return store(static_cast<T>(number.integer()), bytes);
    if constexpr (std::is_signed_v<T>) {
        return store(static_cast<T>(*strictInt64(number)), bytes);
    } else {
        return store(static_cast<T>(*strictUInt64(number)), bytes);
    }
}

}  // namespace

Type readType(std::string_view encoding) { return TypeReader(encoding).read(); }

Value boxScalar(std::string_view encoding, const void* bytes) {
    switch (encoding.empty() ? '\0' : encoding.front()) {
        case 'c': return Value(load<signed char>(bytes));
        case 'C': return Value(load<unsigned char>(bytes));
        case 'B': return Value(load<unsigned char>(bytes) != 0);
        case 's': return Value(load<short>(bytes));
        case 'S': return Value(load<unsigned short>(bytes));
        case 'i': return Value(load<int>(bytes));
        case 'I': return Value(load<unsigned int>(bytes));
        case 'l': return Value(load<long>(bytes));
        case 'L': return Value(load<unsigned long>(bytes));
        case 'q': return Value(load<long long>(bytes));
        case 'Q': return Value(load<unsigned long long>(bytes));
        case 'f': return Value(static_cast<double>(load<float>(bytes)));
        case 'd': return Value(load<double>(bytes));
        case 'D': return Value(static_cast<double>(load<long double>(bytes)));
        default: return nullptr;
    }
}

bool unboxScalar(const Value& number, std::string_view encoding, void* bytes) {
    if (!number.isNumber()) return false;
    switch (encoding.empty() ? '\0' : encoding.front()) {
        case 'c': return storeInteger<signed char>(number, bytes);
        case 'C': return storeInteger<unsigned char>(number, bytes);
        case 'B': return store(*strictBool(number), bytes);
        case 's': return storeInteger<short>(number, bytes);
        case 'S': return storeInteger<unsigned short>(number, bytes);
        case 'i': return storeInteger<int>(number, bytes);
        case 'I': return storeInteger<unsigned int>(number, bytes);
        case 'l': return storeInteger<long>(number, bytes);
        case 'L': return storeInteger<unsigned long>(number, bytes);
        case 'q': return storeInteger<long long>(number, bytes);
        case 'Q': return storeInteger<unsigned long long>(number, bytes);
        case 'f': return store(static_cast<float>(*strictDouble(number)), bytes);
        case 'd': return store(*strictDouble(number), bytes);
        case 'D': return store(static_cast<long double>(*strictDouble(number)), bytes);
        default: return false;
    }
}

}  // namespace vexim
