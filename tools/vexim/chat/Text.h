#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace chat {

/// What a piece of text is; the screen decides how that looks, with colours or without.
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

/// One place on the screen: a character with the marks that combine with it. It is one or two
/// columns wide; a line break, which only `wrapped` understands, takes none.
struct Cell {
    // A family of four with the colours of their skin has eleven.
    static constexpr std::size_t kMost = 12;
    std::array<wchar_t, kMost> characters{};
    std::uint8_t count = 0;
    std::uint8_t width = 0;
    Style style = Style::Normal;
    std::uint8_t hue = 0;  // of a Style::Name: which of the names' colours

    bool is(wchar_t character) const { return count == 1 && characters[0] == character; }
    /// Whether it is an emoji of several characters (UTS #51): with a modifier, joined of others, a
    /// flag. Terminals disagree about how wide these are; here they take two columns.
    bool isSequence() const;
    friend bool operator==(const Cell&, const Cell&) = default;
};
using Cells = std::vector<Cell>;

/// Makes this process read and write UTF-8, which is what messages are, whatever its environment
/// says. Whether the environment agrees: if it names another encoding, a terminal should be sent
/// plain ASCII.
bool useUTF8();

/// Whether the character at `at` is painted in one place with those before it: a mark, or the rest
/// of an emoji.
bool continues(std::wstring_view text, std::size_t at);

std::wstring wide(std::string_view utf8);
std::string narrow(std::wstring_view text);

/// `text` without anything that a terminal would obey: escape sequences, control characters (but
/// line breaks and tabs stay), marks that reverse the reading direction or that cannot be seen.
/// Broken UTF-8 becomes U+FFFD.
std::string harmless(std::string_view text);
/// `harmless`, and in one line: for names. When anything was left out, U+FFFD in front says so,
/// lest it pass for another name.
std::string harmlessLine(std::string_view text);

/// `harmless` text as it is painted; very long text is cut, and says so.
Cells cellsOf(std::string_view text, Style style = Style::Normal);
std::string textOf(const Cells& cells);
int widthOf(const Cells& cells);
/// At most `width` columns; what was cut off shows as "…".
Cells clipped(const Cells& cells, int width);
/// Lines of at most `width` columns (at least 1), broken at blanks and between wide characters
/// where there are any. Without text one empty line.
std::vector<Cells> wrapped(const Cells& cells, int width);

inline Cells& operator+=(Cells& cells, const Cells& more) {
    cells.insert(cells.end(), more.begin(), more.end());
    return cells;
}

}  // namespace chat
