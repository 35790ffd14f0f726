#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace chat {

/// What a piece of text is. The screen decides how to show it, with or without colours.
enum class Style : std::uint8_t {
    Normal,
    Dim,
    Strong,
    Bar,
    BarAlert,
    Current,
    Good,
    Bad,
    Unread,
    Own,
    Name
};

/// One cell of the screen: a character with its combining marks. It is one or two columns wide. A
/// line break has no width; only `wrapped` uses it.
struct Cell {
    // The emoji of a family of four with skin colours has eleven.
    static constexpr std::size_t kMost = 12;
    std::array<wchar_t, kMost> characters{};
    std::uint8_t count = 0;
    std::uint8_t width = 0;
    Style style = Style::Normal;
    std::uint8_t hue = 0;  // for Style::Name, which of the colours for names

    bool is(wchar_t character) const { return count == 1 && characters[0] == character; }
    /// Whether it is an emoji of several characters (UTS #51): one with a modifier, several joined
    /// ones, or a flag. Terminals disagree about their width; here it is two columns.
    bool isSequence() const;
    friend bool operator==(const Cell&, const Cell&) = default;
};
using Cells = std::vector<Cell>;

/// Makes this process use UTF-8, like messages, whatever the environment says. Returns whether the
/// environment agrees; if it names another encoding, send the terminal only ASCII.
bool useUTF8();

/// Whether the character at `at` belongs to the same cell as the one before it: a combining mark,
/// or the rest of an emoji.
bool continues(std::wstring_view text, std::size_t at);

std::wstring wide(std::string_view utf8);
std::string narrow(std::wstring_view text);

/// Removes everything from `text` that a terminal would obey, or that misleads a reader: escape
/// sequences, control characters except line breaks and tabs, invisible marks, and marks that
/// reverse the reading direction. Invalid UTF-8 becomes U+FFFD.
std::string harmless(std::string_view text);
/// Like `harmless`, but in one line, for names. If anything was removed, the result begins with
/// U+FFFD, so that it cannot look like another name.
std::string harmlessLine(std::string_view text);

/// `harmless` text as cells. A very long text is cut, and says so.
Cells cellsOf(std::string_view text, Style style = Style::Normal);
std::string textOf(const Cells& cells);
int widthOf(const Cells& cells);
/// Cut to `width` columns; "…" marks what is missing.
Cells clipped(const Cells& cells, int width);
/// Wrapped to `width` columns (at least 1), at blanks or between wide characters if possible. An
/// empty text gives one empty line.
std::vector<Cells> wrapped(const Cells& cells, int width);

inline Cells& operator+=(Cells& cells, const Cells& more) {
    cells.insert(cells.end(), more.begin(), more.end());
    return cells;
}

}  // namespace chat
