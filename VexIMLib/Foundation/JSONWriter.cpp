#include <array>
#include <charconv>
#include <cmath>
#include <string>

#include "VexIMLib/Foundation/JSON.h"
#include "VexIMLib/Foundation/UTF8.h"

namespace vexim {

namespace {

enum class Character : std::uint8_t { Plain, Escaped, Wide };

// What to do with a byte of text: most stand as they are, some need an escape, the others begin a sequence to be checked.
constexpr std::array<Character, 256> kCharacters = [] {
    std::array<Character, 256> table{};
    for (std::size_t byte = 0; byte < 0x20; ++byte) table[byte] = Character::Escaped;
    for (std::size_t byte = 0x80; byte < 256; ++byte) table[byte] = Character::Wide;
    table['"'] = table['\\'] = Character::Escaped;
    return table;
}();

class Writer {
public:
    explicit Writer(std::string& out) : out_(out) {}

    /// False at the first value that JSON cannot say; `problem` tells why.
    bool write(const Value& value, std::size_t depth) {
        switch (value.kind()) {
            case Value::Kind::Null: out_ += "null"; return true;
            case Value::Kind::Boolean: out_ += value.boolean() ? "true" : "false"; return true;
            case Value::Kind::Integer: writeNumber(value.integer()); return true;
            case Value::Kind::Unsigned: writeNumber(value.unsignedInteger()); return true;
            case Value::Kind::Real: return writeReal(value.real());
            case Value::Kind::String: return writeText(*value.asStringView());
            case Value::Kind::Array: return depth < kJSONMaxDepth ? writeArray(*value.asArray(), depth + 1) : tooDeep();
            case Value::Kind::Dictionary:
                return depth < kJSONMaxDepth ? writeDictionary(*value.asDictionary(), depth + 1) : tooDeep();
            case Value::Kind::Nil: return refuse("nil has no form");
            case Value::Kind::Data: return refuse("bytes have no form");
            case Value::Kind::Object: return refuse("an object has no form");
        }
        return false;
    }
    const char* problem() const noexcept { return problem_; }

private:
    bool refuse(const char* why) {
        problem_ = why;
        return false;
    }
    bool tooDeep() { return refuse("it nests too deep"); }

    template <class Number>
    void writeNumber(Number number) {
        char buffer[24];
        out_.append(buffer, std::to_chars(buffer, buffer + sizeof(buffer), number).ptr);
    }

    bool writeReal(double number) {
        if (!std::isfinite(number)) return refuse("infinity and NaN have no form");
        char buffer[32];
        const std::string_view digits(buffer, std::to_chars(buffer, buffer + sizeof(buffer), number).ptr);
        out_ += digits;
        // 5.0 is written as such, not as 5: what we read back is then of the kind that was written.
        if (digits.find_first_of(".e") == std::string_view::npos) out_ += ".0";
        return true;
    }

    bool writeText(std::string_view text) {
        out_ += '"';
        std::size_t begin = 0;  // of what waits to be copied
        for (std::size_t at = 0; at < text.size();) {
            switch (kCharacters[static_cast<unsigned char>(text[at])]) {
                case Character::Plain: ++at; break;
                case Character::Escaped:
                    out_ += text.substr(begin, at - begin);
                    writeEscape(text[at]);
                    begin = ++at;
                    break;
                case Character::Wide: {
                    const auto length = detail::utf8SequenceLength(text.substr(at));
                    if (length == 0) return refuse("a text is no valid UTF-8");
                    at += length;
                    break;
                }
            }
        }
        out_ += text.substr(begin);
        out_ += '"';
        return true;
    }

    void writeEscape(char c) {
        out_ += '\\';
        switch (c) {
            case '"':
            case '\\': out_ += c; return;
            case '\b': out_ += 'b'; return;
            case '\f': out_ += 'f'; return;
            case '\n': out_ += 'n'; return;
            case '\r': out_ += 'r'; return;
            case '\t': out_ += 't'; return;
            default: break;
        }
        static constexpr char kDigits[] = "0123456789abcdef";
        out_ += "u00";
        out_ += kDigits[static_cast<unsigned char>(c) >> 4];
        out_ += kDigits[c & 15];
    }

    bool writeArray(const Array& array, std::size_t depth) {
        out_ += '[';
        bool isFirst = true;
        for (const auto& element : array) {
            if (!isFirst) out_ += ',';
            isFirst = false;
            if (!write(element, depth)) return false;
        }
        out_ += ']';
        return true;
    }

    bool writeDictionary(const Dictionary& dictionary, std::size_t depth) {
        out_ += '{';
        bool isFirst = true;
        for (const auto& [key, value] : dictionary) {
            if (!isFirst) out_ += ',';
            isFirst = false;
            if (!writeText(key)) return false;
            out_ += ':';
            if (!write(value, depth)) return false;
        }
        out_ += '}';
        return true;
    }

    std::string& out_;
    const char* problem_ = "";
};

ErrorPtr failure(const std::string& why) {
    constexpr std::int64_t kPropertyListWriteInvalid = 3851;
    return Error::withDescription(kCocoaErrorDomain, kPropertyListWriteInvalid,
                                  "The value cannot be written as JSON: " + why + ".");
}

}  // namespace

JSONText writeJSON(const Value& value, JSONFragments fragments) {
    if (fragments == JSONFragments::Refuse && !value.isArray() && !value.isDictionary()) {
        return {{}, failure("the top level is neither an array nor a dictionary")};
    }
    std::string text;
    text.reserve(256);
    Writer writer(text);
    if (!writer.write(value, 0)) return {{}, failure(writer.problem())};
    return {std::move(text), nullptr};
}

}  // namespace vexim
