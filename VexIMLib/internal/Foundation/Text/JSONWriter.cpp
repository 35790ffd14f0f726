#include <algorithm>
#include <array>
#include <cassert>
#include <charconv>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <memory>
#include <string>

#include "VexIMLib/Foundation/JSON.h"
#include "VexIMLib/internal/Foundation/Text/PlainText.h"
#include "VexIMLib/internal/Foundation/Text/UTF8.h"
#include "VexIMLib/internal/Foundation/Values/Blocks.h"

namespace vexim {

namespace {

/// Text that grows at its end. Reserve room first, then write without further checks.
class Output {
public:
    void begin() noexcept { end_ = block_.get(); }
    void makeRoom(std::size_t count) {
        if (static_cast<std::size_t>(limit_ - end_) < count) grow(count);
    }
    void put(char c) noexcept { *end_++ = c; }
    void put(std::string_view text) noexcept {
        std::memcpy(end_, text.data(), text.size());
        end_ += text.size();
    }
    char* end() noexcept {
        assert(end_ != nullptr);
        return end_;
    }
    void endAt(char* end) noexcept { end_ = end; }
    std::string_view text() const { return {block_.get(), size()}; }
    /// Releases memory after an unusually large text.
    void trim() noexcept {
        if (static_cast<std::size_t>(limit_ - block_.get()) <= kKeptCapacity) return;
        block_.reset();
        end_ = limit_ = nullptr;
    }

private:
    static constexpr std::size_t kKeptCapacity = 512 * 1024;

    std::size_t size() const noexcept { return static_cast<std::size_t>(end_ - block_.get()); }
    void grow(std::size_t count) {
        const std::size_t former = size();
        const std::size_t capacity =
            std::max({former + count, static_cast<std::size_t>(limit_ - block_.get()) * 2,
                      std::size_t{1024}});
        std::unique_ptr<char[]> larger(new char[capacity]);
        if (former > 0) std::memcpy(larger.get(), block_.get(), former);
        block_ = std::move(larger);
        end_ = block_.get() + former;
        limit_ = block_.get() + capacity;
    }

    std::unique_ptr<char[]> block_;
    char* end_ = nullptr;
    char* limit_ = nullptr;
};

enum class Character : std::uint8_t { Plain, Escaped, Wide };

// What to do with a byte of text: most are copied, some need an escape, the others begin a UTF-8
// sequence that must be checked.
constexpr std::array<Character, 256> kCharacters = [] {
    std::array<Character, 256> table{};
    for (std::size_t byte = 0; byte < 0x20; ++byte) table[byte] = Character::Escaped;
    for (std::size_t byte = 0x80; byte < 256; ++byte) table[byte] = Character::Wide;
    table['"'] = table['\\'] = Character::Escaped;
    return table;
}();

class Writer {
public:
    explicit Writer(Output& out) : out_(out) {}

    /// False at the first value that JSON cannot express; `problem` says why.
    bool write(const Value& value, std::size_t depth) {
        switch (value.kind()) {
            case Value::Kind::Null: return writeWord("null");
            case Value::Kind::Boolean: return writeWord(value.boolean() ? "true" : "false");
            case Value::Kind::Integer: return writeNumber(value.integer());
            case Value::Kind::Unsigned: return writeNumber(value.unsignedInteger());
            case Value::Kind::Real: return writeReal(value.real());
            case Value::Kind::String: return writeText(*value.asStringView());
            case Value::Kind::Array: return writeArray(*value.asArray(), depth + 1);
            case Value::Kind::Dictionary: return writeDictionary(*value.asDictionary(), depth + 1);
            case Value::Kind::Nil: return refuse("JSON cannot hold nil");
            case Value::Kind::Data: return refuse("JSON cannot hold bytes");
            case Value::Kind::Object: return refuse("JSON cannot hold an object");
        }
        return false;
    }
    const char* problem() const noexcept { return problem_; }

private:
    static constexpr std::size_t kNumberRoom = 32;  // the longest double takes 24
    static constexpr std::size_t kEscapeRoom = 6;

    bool refuse(const char* why) {
        problem_ = why;
        return false;
    }

    bool writeWord(std::string_view word) {
        out_.makeRoom(word.size());
        out_.put(word);
        return true;
    }

    template <class Number>
    bool writeNumber(Number number) {
        out_.makeRoom(kNumberRoom);
        out_.endAt(std::to_chars(out_.end(), out_.end() + kNumberRoom, number).ptr);
        return true;
    }

    bool writeReal(double number) {
        if (!std::isfinite(number)) return refuse("JSON cannot hold infinity or NaN");
        out_.makeRoom(kNumberRoom);
        const char* begin = out_.end();
        writeNumber(number);
        // 5.0 is written as 5.0, not as 5, so that reading it gives the same kind again.
        const std::string_view digits(begin, static_cast<std::size_t>(out_.end() - begin));
        if (digits.find_first_of(".e") == std::string_view::npos) out_.put(".0");
        return true;
    }

    bool writeText(std::string_view text) {
        out_.makeRoom(text.size() + kEscapeRoom + 2);
        char* to = out_.end();
        *to++ = '"';
        return writeRest(text, to);
    }

    /// `before` is written before the key.
    bool writeKey(std::string_view key, char before) {
        out_.makeRoom(key.size() + kEscapeRoom + 4);
        char* to = out_.end();
        *to++ = before;
        *to++ = '"';
        if (!writeRest(key, to)) return false;
        out_.put(':');
        return true;
    }

    /// Writes a string at `to`, after its opening quote.
    bool writeRest(std::string_view text, char* to) {
        if (char* end = detail::copyPlain(text, to)) {
            *end++ = '"';
            out_.endAt(end);
            return true;
        }
        out_.endAt(to);
        if (!writeMixed(text)) return false;
        out_.put('"');
        return true;
    }

    // There is room for the text, one escape and two characters. Each escape reserves room for the
    // next one.
    bool writeMixed(std::string_view text) {
        while (!text.empty()) {
            std::size_t length = 1;
            switch (kCharacters[static_cast<unsigned char>(text.front())]) {
                case Character::Plain: out_.put(text.front()); break;
                case Character::Escaped:
                    writeEscape(text.front());
                    out_.makeRoom(text.size() + kEscapeRoom + 2);
                    break;
                case Character::Wide:
                    length = detail::utf8SequenceLength(text);
                    if (length == 0) return refuse("a text is not valid UTF-8");
                    out_.put(text.substr(0, length));
                    break;
            }
            text.remove_prefix(length);
        }
        return true;
    }

    void writeEscape(char c) {
        out_.put('\\');
        switch (c) {
            case '"':
            case '\\': out_.put(c); return;
            case '\b': out_.put('b'); return;
            case '\f': out_.put('f'); return;
            case '\n': out_.put('n'); return;
            case '\r': out_.put('r'); return;
            case '\t': out_.put('t'); return;
            default: break;
        }
        static constexpr char kDigits[] = "0123456789abcdef";
        out_.put("u00");
        out_.put(kDigits[static_cast<unsigned char>(c) >> 4]);
        out_.put(kDigits[c & 15]);
    }

    bool writeArray(const Array& array, std::size_t depth) {
        if (depth > kJSONMaxDepth) return refuse("it is nested too deeply");
        const auto* store = detail::ArrayRep::of(array);
        if (!store || store->size == 0) return writeWord("[]");
        char before = '[';
        for (const auto *element = store->elements(), *end = element + store->size; element != end;
             ++element) {
            writeMark(before);
            if (!write(*element, depth)) return false;
            before = ',';
        }
        writeMark(']');
        return true;
    }

    bool writeDictionary(const Dictionary& dictionary, std::size_t depth) {
        if (depth > kJSONMaxDepth) return refuse("it is nested too deeply");
        const auto* store = detail::DictionaryRep::of(dictionary);
        if (!store || store->size == 0) return writeWord("{}");
        char before = '{';
        for (const auto *item = store->items(), *end = item + store->size; item != end; ++item) {
            if (!writeKey(item->name(), before)) return false;
            if (!write(item->value, depth)) return false;
            before = ',';
        }
        writeMark('}');
        return true;
    }

    void writeMark(char mark) {
        out_.makeRoom(1);
        out_.put(mark);
    }

    Output& out_;
    const char* problem_ = "";
};

ErrorPtr failure(const std::string& why) {
    constexpr std::int64_t kPropertyListWriteInvalid = 3851;
    return Error::withDescription(kCocoaErrorDomain, kPropertyListWriteInvalid,
                                  "The value cannot be written as JSON: " + why + ".");
}

}  // namespace

JSONText writeJSON(const Value& value, JSONFragments fragments) {
    JSONText result;
    result.error = appendJSON(result.text, value, fragments);
    return result;
}

ErrorPtr appendJSON(std::string& text, const Value& value, JSONFragments fragments) {
    if (fragments == JSONFragments::Refuse && !value.isArray() && !value.isDictionary()) {
        return failure("the top level is neither an array nor a dictionary");
    }
    thread_local Output output;  // its memory is reused
    output.begin();
    Writer writer(output);
    const bool written = writer.write(value, 0);
    if (written) text += output.text();
    output.trim();
    return written ? nullptr : failure(writer.problem());
}

}  // namespace vexim
