#include <boost/json/basic_parser_impl.hpp>
#include <cstring>
#include <memory>
#include <optional>
#include <string>
#include <utility>

#include "VexIMLib/internal/Foundation/Text/ASCII.h"
#include "VexIMLib/internal/Foundation/Text/BoundedJSON.h"
#include "VexIMLib/internal/Foundation/Text/Real.h"
#include "VexIMLib/internal/Foundation/Values/Blocks.h"

// Boost.JSON's streaming parser calls a builder that keeps finished values on one stack. A
// container's members lie there as they will lie in its storage: next to each other, each key
// before its value. So closing a container is a single copy of bytes.

namespace vexim {

namespace {

namespace json = boost::json;

/// The stack of finished values, as raw memory: values are moved by copying their bytes.
class ValueStack {
public:
    ValueStack() = default;
    ValueStack(const ValueStack&) = delete;
    ValueStack& operator=(const ValueStack&) = delete;
    ~ValueStack() { clear(); }

    template <class... Arguments>
    void push(Arguments&&... arguments) {
        if (size_ == capacity_) grow();
        new (data() + size_) Value(std::forward<Arguments>(arguments)...);
        ++size_;
    }
    /// Removes the topmost `count` values; the caller owns them now.
    Value* release(std::size_t count) noexcept {
        size_ -= count;
        return data() + size_;
    }
    Value pop() noexcept {
        Value value = std::move(data()[--size_]);
        return value;
    }
    bool empty() const noexcept { return size_ == 0; }
    void clear() noexcept {
        while (size_ > 0) pop();
    }
    /// Releases memory after an unusually large text.
    void trim() noexcept {
        if (capacity_ <= kKeptCapacity) return;
        block_.reset();
        capacity_ = 0;
    }

private:
    static constexpr std::size_t kKeptCapacity = 4096;
    struct Slot {
        alignas(Value) unsigned char bytes[sizeof(Value)];
    };

    Value* data() noexcept { return reinterpret_cast<Value*>(block_.get()); }
    void grow() {
        const std::size_t room = capacity_ == 0 ? 64 : capacity_ * 2;
        std::unique_ptr<Slot[]> larger(new Slot[room]);
        if (size_ > 0) std::memcpy(larger.get(), block_.get(), size_ * sizeof(Slot));
        block_ = std::move(larger);
        capacity_ = room;
    }

    std::unique_ptr<Slot[]> block_;
    std::size_t size_ = 0;
    std::size_t capacity_ = 0;
};

/// The parser calls these, in the order of the text.
struct Builder {
    static constexpr std::size_t max_object_size = static_cast<std::size_t>(-1);
    static constexpr std::size_t max_array_size = static_cast<std::size_t>(-1);
    static constexpr std::size_t max_key_size = static_cast<std::size_t>(-1);
    static constexpr std::size_t max_string_size = static_cast<std::size_t>(-1);

    ValueStack stack;
    std::size_t room = 0;  // how many more values are allowed
    std::string partial;   // the beginning of a string that comes in pieces, for example because it
                           // has escapes

    bool on_document_begin(json::error_code&) { return true; }
    bool on_document_end(json::error_code&) { return true; }
    bool on_object_begin(json::error_code& error) { return count(error); }
    bool on_object_end(std::size_t count, json::error_code&) {
        auto* rep = detail::DictionaryRep::adopt(stack.release(2 * count), count);
        stack.push(detail::DictionaryRep::wrap(rep));
        return true;
    }
    bool on_array_begin(json::error_code& error) { return count(error); }
    bool on_array_end(std::size_t count, json::error_code&) {
        auto* rep = detail::ArrayRep::adopt(stack.release(count), count);
        stack.push(detail::ArrayRep::wrap(rep));
        return true;
    }
    bool on_key_part(json::string_view text, std::size_t, json::error_code&) {
        return addPart(text);
    }
    bool on_key(json::string_view text, std::size_t, json::error_code& error) {
        return count(error) && addText(text);
    }
    bool on_string_part(json::string_view text, std::size_t, json::error_code&) {
        return addPart(text);
    }
    bool on_string(json::string_view text, std::size_t, json::error_code& error) {
        return count(error) && addText(text);
    }
    bool on_number_part(json::string_view, json::error_code&) { return true; }
    bool on_int64(std::int64_t number, json::string_view, json::error_code& error) {
        if (!count(error)) return false;
        stack.push(number);
        return true;
    }
    bool on_uint64(std::uint64_t number, json::string_view, json::error_code& error) {
        if (!count(error)) return false;
        stack.push(number);
        return true;
    }
    bool on_double(double approximate, json::string_view text, json::error_code& error) {
        // The parser's own conversion is sometimes wrong in the last bit or two.
        double number = 0;
        auto result = readReal(text.data(), text.data() + text.size(), number);
        if (result.ec == std::errc::result_out_of_range) {
            if (approximate > 1 || approximate < -1) {
                error = json::error::exponent_overflow;
                return false;
            }
            number = text.front() == '-' ? -0.0 : 0.0;
        }
        if (!count(error)) return false;
        stack.push(number);
        return true;
    }
    bool on_bool(bool value, json::error_code& error) {
        if (!count(error)) return false;
        stack.push(value);
        return true;
    }
    bool on_null(json::error_code& error) {
        if (!count(error)) return false;
        stack.push(Value::null());
        return true;
    }
    bool on_comment_part(json::string_view, json::error_code&) { return true; }
    bool on_comment(json::string_view, json::error_code&) { return true; }

private:
    bool count(json::error_code& error) {
        if (room-- > 0) return true;
        error = json::error::array_too_large;
        return false;
    }
    bool addPart(json::string_view text) {
        partial.append(text.data(), text.size());
        return true;
    }
    bool addText(json::string_view text) {
        if (partial.empty()) {
            stack.push(std::string_view(text.data(), text.size()));
            return true;
        }
        partial.append(text.data(), text.size());
        stack.push(std::string_view(partial));
        partial.clear();
        return true;
    }
};

json::parse_options options() {
    json::parse_options options;
    options.max_depth = kJSONMaxDepth;
    return options;
}

/// One per thread, so that its stack's memory is reused.
class Reader {
public:
    JSONResult read(std::string_view text, JSONFragments fragments, std::size_t maxValues) {
        auto& builder = parser_.handler();
        builder.room = maxValues;
        // needed before reading, too: the last read may have thrown because memory ran out
        parser_.reset();
        builder.stack.clear();
        builder.partial.clear();
        JSONResult result = parse(text, fragments);
        builder.stack.clear();
        builder.stack.trim();
        if (builder.partial.capacity() > kKeptText) std::string().swap(builder.partial);
        return result;
    }

private:
    static constexpr std::size_t kKeptText = 64 * 1024;
    // A parsed message takes nearly four times the memory of its text. If it takes more, the rest
    // comes from the heap. Very short texts need hardly any blocks.
    static constexpr std::size_t kSlabBytesPerByte = 4;
    static constexpr std::size_t kLeastSlabText = 64;
    static constexpr std::size_t kMostSlabText = detail::Slab::kMostBytes / kSlabBytesPerByte;

    JSONResult parse(std::string_view text, JSONFragments fragments) {
        json::error_code error;
        std::size_t read = 0;
        {
            std::optional<detail::Slab::Scope> slab;
            if (text.size() >= kLeastSlabText && text.size() <= kMostSlabText)
                slab.emplace(text.size() * kSlabBytesPerByte);
            read = parser_.write_some(false, text.data(), text.size(), error);
        }
        if (!error && read < text.size()) error = json::error::extra_data;
        if (error) return {{}, failure(error.message(), read)};
        Value value = parser_.handler().stack.pop();
        if (fragments == JSONFragments::Refuse && !value.isArray() && !value.isDictionary()) {
            return {{}, failure("the top level is neither an array nor a dictionary", 0)};
        }
        return {std::move(value), nullptr};
    }

    static ErrorPtr failure(const std::string& what, std::size_t offset) {
        constexpr std::int64_t kPropertyListReadCorrupt = 3840;
        return Error::withDescription(
            kCocoaErrorDomain, kPropertyListReadCorrupt,
            "The text is not valid JSON: " + what + " (at byte " + std::to_string(offset) + ").");
    }

    json::basic_parser<Builder> parser_{options()};
};

// The code unit of the escape \uXXXX at `at`, or -1 if there is none.
int escapedUnit(std::string_view text, std::size_t at) noexcept {
    if (at + 6 > text.size() || text[at] != '\\' || text[at + 1] != 'u') return -1;
    int unit = 0;
    for (std::size_t i = at + 2; i < at + 6; ++i) {
        int digit = detail::hexDigit(text[i]);
        if (digit < 0) return -1;
        unit = unit * 16 + digit;
    }
    return unit;
}

bool isLeading(int unit) noexcept { return unit >= 0xD800 && unit <= 0xDBFF; }
bool isTrailing(int unit) noexcept { return unit >= 0xDC00 && unit <= 0xDFFF; }

// Replaces each escape of an unpaired surrogate by one of U+FFFD. The length does not change, so
// offsets stay right.
std::string withoutUnpairedSurrogates(std::string_view text) {
    std::string mended(text);
    for (std::size_t at = mended.find('\\'); at != std::string::npos; at = mended.find('\\', at)) {
        const int unit = escapedUnit(mended, at);
        if (unit < 0) {
            at += 2;  // another escape, usually a second backslash
        } else if (isLeading(unit) && isTrailing(escapedUnit(mended, at + 6))) {
            at += 12;
        } else {
            if (isLeading(unit) || isTrailing(unit)) mended.replace(at + 2, 4, "FFFD");
            at += 6;
        }
    }
    return mended;
}

}  // namespace

JSONResult parseJSON(std::string_view text, JSONFragments fragments) {
    return detail::parseBoundedJSON(text, fragments, static_cast<std::size_t>(-1));
}

JSONResult detail::parseBoundedJSON(std::string_view text, JSONFragments fragments,
                                    std::size_t maxValues) {
    constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";
    // RFC 8259 section 8.1 lets a reader skip it
    if (text.starts_with(kByteOrderMark)) text.remove_prefix(kByteOrderMark.size());
    thread_local Reader reader;
    JSONResult result = reader.read(text, fragments, maxValues);
    if (!result.error || text.find("\\u") == std::string_view::npos) return result;
    // The parser refuses unpaired surrogates. Clients send them when they cut a text in the middle
    // of an emoji, so replace them and try again.
    std::string mended = withoutUnpairedSurrogates(text);
    return mended == text ? result : reader.read(mended, fragments, maxValues);
}

}  // namespace vexim
