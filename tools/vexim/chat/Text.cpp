#include "Text.h"

#include <langinfo.h>

#include <algorithm>
#include <clocale>
#include <cstdlib>
#include <cstring>
#include <cwchar>
#include <cwctype>
#include <optional>

namespace chat {
namespace {

constexpr wchar_t kUnknown = 0xFFFD;
constexpr std::size_t kLongest = 16'384;       // the most characters of a text to paint
constexpr std::size_t kLongestBytes = 65'536;  // and the most bytes to read

constexpr wchar_t kJoiner = 0x200D;
constexpr wchar_t kEmojiStyle = 0xFE0F;

bool isSkinTone(wchar_t c) { return c >= 0x1F3FB && c <= 0x1F3FF; }
/// Two of these make a flag.
bool isFlagLetter(wchar_t c) { return c >= 0x1F1E6 && c <= 0x1F1FF; }
/// Changes how an emoji looks; has no effect without one.
bool isSelector(wchar_t c) {
    return c == 0x200C || c == kJoiner || c == 0xFE0E || c == kEmojiStyle;
}
/// Whether it may be shown as a picture. Letters, digits and combining marks are not.
bool isPicture(wchar_t c) {
    return c >= 0xA9 && ::wcwidth(c) > 0 && !isSkinTone(c) && !isFlagLetter(c) &&
           std::iswalpha(static_cast<std::wint_t>(c)) == 0;
}

/// Whether `next` continues the emoji in `cell`.
bool goesOn(const Cell& cell, wchar_t next) {
    if (cell.count == 0 || cell.count == Cell::kMost) return false;
    const wchar_t first = cell.characters[0];
    const wchar_t last = cell.characters[cell.count - 1];
    if (isFlagLetter(next)) return cell.count == 1 && isFlagLetter(first);
    if (last == kJoiner) return isPicture(next);
    if (next != kJoiner && next != kEmojiStyle && !isSkinTone(next)) return false;
    return isPicture(first) || (isFlagLetter(first) && cell.count == 2);
}

/// Chinese and Japanese have no blanks. A line may break between any two of their characters (UAX
/// #14), but must not begin with a closing mark or a small kana, nor end with an opening mark.
bool isBreakBetween(const Cell& one, const Cell& next) {
    constexpr std::wstring_view kNotFirst =
        L"、。，．！？：；）」』】〉》〕］｝…‥・ー～々ぁぃぅぇぉっゃゅょゎァィゥェォッャュョヮ.,!?:;)]}\"'";
    constexpr std::wstring_view kNotLast = L"（「『【〈《〔［｛([{\"'";
    if ((one.width < 2 && next.width < 2) || one.is(L' ') || next.is(L' ')) return false;
    return kNotFirst.find(next.characters[0]) == kNotFirst.npos &&
           kNotLast.find(one.characters[0]) == kNotLast.npos;
}

Cell cell(wchar_t character, int width, Style style) {
    Cell made;
    made.characters[0] = character;
    made.count = 1;
    made.width = static_cast<std::uint8_t>(width);
    made.style = style;
    return made;
}

}  // namespace

bool Cell::isSequence() const {
    const auto end = characters.begin() + count;
    return count > 1 && std::any_of(characters.begin() + 1, end, [](wchar_t c) {
               return c == kJoiner || c == kEmojiStyle || isSkinTone(c) || isFlagLetter(c);
           });
}

bool continues(std::wstring_view text, std::size_t at) {
    if (at == 0) return false;
    const wchar_t c = text[at];
    if (::wcwidth(c) == 0 || text[at - 1] == kJoiner) return true;
    if (isSkinTone(c)) return isPicture(text[at - 1]);
    std::size_t letters = 0;
    while (isFlagLetter(c) && letters < at && isFlagLetter(text[at - 1 - letters])) ++letters;
    return letters % 2 == 1;
}

bool useUTF8() {
    std::setlocale(LC_ALL, "");
    if (std::strcmp(nl_langinfo(CODESET), "UTF-8") == 0) return true;
    bool named = false;
    for (const char* name : {"LC_ALL", "LC_CTYPE", "LANG"}) {
        const char* value = std::getenv(name);
        named = named || (value != nullptr && *value != '\0');
    }
    std::setlocale(LC_CTYPE, "C.UTF-8");
    return !named;  // without any setting, assume UTF-8
}

std::wstring wide(std::string_view utf8) {
    std::wstring text;
    std::mbstate_t state{};
    while (!utf8.empty()) {
        wchar_t character = 0;
        const std::size_t length = std::mbrtowc(&character, utf8.data(), utf8.size(), &state);
        const bool broken = length > utf8.size();
        if (broken) state = {};
        text += broken ? kUnknown : character;
        utf8.remove_prefix(broken || length == 0 ? 1 : length);
    }
    return text;
}

std::string narrow(std::wstring_view text) {
    std::string utf8;
    std::array<char, 16> bytes{};
    for (const wchar_t character : text) {
        std::mbstate_t state{};
        const std::size_t length = std::wcrtomb(bytes.data(), character, &state);
        if (length <= bytes.size()) utf8.append(bytes.data(), length);
    }
    return utf8;
}

Cells cellsOf(std::string_view text, Style style) {
    Cells cells;
    const bool isCut = text.size() > kLongestBytes;
    std::wstring shownText = wide(harmless(text.substr(0, kLongestBytes)));
    if (isCut || shownText.size() > kLongest)
        shownText = shownText.substr(0, kLongest) + L"… (cut here, it is too long)";
    for (const wchar_t character : shownText) {
        if (character == L'\n') {
            cells.push_back(cell(L'\n', 0, style));
            continue;
        }
        if (!cells.empty() && goesOn(cells.back(), character)) {
            auto& emoji = cells.back();
            emoji.characters[emoji.count++] = character;
            emoji.width = 2;
            continue;
        }
        if (isSelector(character)) continue;
        const wchar_t shown = character == L'\t' ? L' ' : character;
        const int width = ::wcwidth(shown);
        if (width < 0) {
            cells.push_back(cell(kUnknown, 1, style));
        } else if (width > 0) {
            cells.push_back(cell(shown, width, style));
        } else {  // a combining mark; if it is the first character, it combines with a blank
            if (cells.empty() || cells.back().width == 0) cells.push_back(cell(L' ', 1, style));
            auto& base = cells.back();
            if (base.count < Cell::kMost) base.characters[base.count++] = shown;
        }
    }
    return cells;
}

std::string textOf(const Cells& cells) {
    std::wstring text;
    for (const auto& one : cells) text.append(one.characters.data(), one.count);
    return narrow(text);
}

int widthOf(const Cells& cells) {
    int width = 0;
    for (const auto& one : cells) width += one.width;
    return width;
}

Cells clipped(const Cells& cells, int width) {
    if (widthOf(cells) <= width) return cells;
    Cells kept;
    int used = 0;
    for (const auto& one : cells) {
        if (used + one.width > width - 1) break;
        used += one.width;
        kept.push_back(one);
    }
    if (width > 0) kept.push_back(cell(L'…', 1, cells[kept.size()].style));
    return kept;
}

std::vector<Cells> wrapped(const Cells& cells, int width) {
    std::vector<Cells> lines;
    Cells line;
    int used = 0;
    struct Break {
        std::size_t end = 0;   // the end of what stays on this line
        std::size_t next = 0;  // the beginning of the next line
    };
    std::optional<Break> last;
    const auto breakAt = [&](Break at) {
        Cells rest(line.begin() + static_cast<std::ptrdiff_t>(at.next), line.end());
        line.resize(at.end);
        lines.push_back(std::move(line));
        line = std::move(rest);
        used = widthOf(line);
        last.reset();
    };
    for (const auto& one : cells) {
        if (one.is(L'\n')) {
            breakAt({line.size(), line.size()});
            continue;
        }
        const Cell fitting = one.width <= width ? one : cell(L'?', 1, one.style);
        // the line break replaces the blank
        if (fitting.is(L' ') && used + 1 > width && !line.empty()) {
            breakAt({line.size(), line.size()});
            continue;
        }
        if (!line.empty() && isBreakBetween(line.back(), fitting))
            last = {line.size(), line.size()};
        while (used + fitting.width > width && !line.empty())
            breakAt(last.value_or(Break{line.size(), line.size()}));
        line.push_back(fitting);
        used += fitting.width;
        if (fitting.is(L' ')) last = {line.size() - 1, line.size()};
    }
    lines.push_back(std::move(line));
    return lines;
}

}  // namespace chat
