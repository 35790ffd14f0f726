#include "Screen.h"

// ncurses hides its functions for wide characters unless this is set, and we want functions instead
// of macros.
#define NCURSES_WIDECHAR 1
#define NCURSES_NOMACROS 1
#include <curses.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <clocale>
#include <csignal>
#include <cstdlib>
#include <cwchar>
#include <map>
#include <string>
#include <utility>

#include "Terminal.h"

namespace chat {
namespace {

constexpr int kPasteBegin = KEY_MAX + 1;
constexpr int kPasteEnd = KEY_MAX + 2;
constexpr int kWordLeft = KEY_MAX + 3;
constexpr int kWordRight = KEY_MAX + 4;
constexpr std::uint8_t kMostOfLibrary = CCHARW_MAX;
constexpr int kMostPlaces = 1000;  // columns or rows; a terminal may claim to have more

// The numbers of colour pairs.
constexpr short kRed = 1, kGreen = 2, kYellow = 3, kFirstName = 4, kBar = 10, kBarAlert = 11;

/// Some sequences that terminals send whatever TERM says. After a remote login TERM is often wrong.
constexpr std::pair<const char*, int> kSequences[] = {
    {"\033[200~", kPasteBegin}, {"\033[201~", kPasteEnd},  {"\033[A", KEY_UP},
    {"\033OA", KEY_UP},         {"\033[B", KEY_DOWN},      {"\033OB", KEY_DOWN},
    {"\033[C", KEY_RIGHT},      {"\033OC", KEY_RIGHT},     {"\033[D", KEY_LEFT},
    {"\033OD", KEY_LEFT},       {"\033[H", KEY_HOME},      {"\033OH", KEY_HOME},
    {"\033[1~", KEY_HOME},      {"\033[7~", KEY_HOME},     {"\033[F", KEY_END},
    {"\033OF", KEY_END},        {"\033[4~", KEY_END},      {"\033[8~", KEY_END},
    {"\033[3~", KEY_DC},        {"\033[5~", KEY_PPAGE},    {"\033[6~", KEY_NPAGE},
    {"\033[1;5D", kWordLeft},   {"\033[1;3D", kWordLeft},  {"\033Od", kWordLeft},
    {"\033[1;5C", kWordRight},  {"\033[1;3C", kWordRight}, {"\033Oc", kWordRight},
};

/// Reads the rest of an unknown key's sequence, which must not count as typed text.
void skipSequence(wint_t introducer) {
    const wint_t first = introducer == L'[' ? 0x40 : 0x20;
    wint_t next = 0;
    while (get_wch(&next) == OK && next >= 0x20 && next < first) {
    }
}

void setBracketedPaste(bool on) {
    // The terminal then marks the beginning and the end of pasted text.
    std::fputs(on ? "\033[?2004h" : "\033[?2004l", stdout);
    std::fflush(stdout);
}

/// A replacement for terminals without UTF-8.
wchar_t asciiFor(wchar_t character) {
    switch (character) {
        case L'│': return L'|';
        case L'…': return L'~';
        case L'●': return L'*';
        case L'○': return L'o';
        case L'⏎': return L'$';
        default: return character < 0x7F ? character : L'?';
    }
}

std::optional<Key::Code> namedKey(wint_t key) {
    switch (key) {
        case KEY_ENTER: return Key::Code::Enter;
        case KEY_BACKSPACE: return Key::Code::Backspace;
        case KEY_DC: return Key::Code::Delete;
        case KEY_LEFT: return Key::Code::Left;
        case KEY_RIGHT: return Key::Code::Right;
        case KEY_UP: return Key::Code::Up;
        case KEY_DOWN: return Key::Code::Down;
        case KEY_HOME: return Key::Code::Home;
        case KEY_END: return Key::Code::End;
        case KEY_PPAGE: return Key::Code::PageUp;
        case KEY_NPAGE: return Key::Code::PageDown;
        case kPasteBegin: return Key::Code::PasteBegin;
        case kPasteEnd: return Key::Code::PasteEnd;
        default: return std::nullopt;
    }
}

}  // namespace

struct Screen::Impl {
    SCREEN* terminal = nullptr;
    bool isUTF8 = true;
    bool hasColours = false;

    // Rows with emoji of several characters, as they were last painted.
    std::map<int, Cells> painted;
    bool isAnew = true;  // repaint everything next time

    struct Look {
        attr_t attributes = A_NORMAL;
        short pair = 0;
    };
    Look look(const Cell& cell) const {
        const auto coloured = [this](attr_t plain, attr_t withColour, short pair) {
            return hasColours ? Look{withColour, pair} : Look{plain, 0};
        };
        switch (cell.style) {
            case Style::Normal: return {};
            case Style::Dim: return {A_DIM, 0};
            case Style::Strong: return {A_BOLD, 0};
            case Style::Bar: return coloured(A_REVERSE, A_NORMAL, kBar);
            case Style::BarAlert: return coloured(A_REVERSE | A_BOLD, A_BOLD, kBarAlert);
            case Style::Current: return {A_REVERSE, 0};
            case Style::Good: return coloured(A_BOLD, A_NORMAL, kGreen);
            case Style::Bad: return coloured(A_BOLD, A_NORMAL, kRed);
            case Style::Unread: return coloured(A_BOLD | A_REVERSE, A_BOLD, kYellow);
            case Style::Own: return {A_BOLD, 0};
            case Style::Name:
                return coloured(A_UNDERLINE, A_NORMAL,
                                static_cast<short>(kFirstName + cell.hue % 6));
        }
        return {};
    }

    std::map<int, Cells> rowsWithSequences(const Frame& frame) const {
        std::map<int, Cells> found;
        for (std::size_t row = 0; isUTF8 && row < frame.rows.size(); ++row) {
            if (std::ranges::any_of(frame.rows[row], &Cell::isSequence))
                found.emplace(static_cast<int>(row), frame.rows[row]);
        }
        return found;
    }

    /// Paints emoji of several characters, which ncurses cannot do. Each is followed by an order to
    /// move the cursor to its right end. So it does not matter how wide the terminal thinks it is,
    /// and a terminal that cannot combine the characters shows the first one.
    void paintSequences(const Frame& frame, const std::map<int, Cells>& rows) {
        order.clear();
        for (const auto& [row, cells] : rows) {
            const auto before = painted.find(row);
            if (row >= getmaxy(stdscr) || (before != painted.end() && before->second == cells))
                continue;
            int column = 0;
            bool isBehind = false;  // after an emoji everything in the row is painted again
            for (const auto& cell : cells) {
                if (column + cell.width > getmaxx(stdscr)) break;
                if (cell.isSequence() || isBehind) {
                    if (cell.isSequence() || !isBehind) order += cursorOrder(row, column);
                    const auto style = look(cell);
                    vid_puts(style.attributes, style.pair, nullptr, append);
                    order += narrow({cell.characters.data(), cell.count});
                    isBehind = true;
                }
                column += cell.width;
                if (cell.isSequence())
                    order += cursorOrder(row, std::min(column, getmaxx(stdscr) - 1));
            }
            vid_puts(A_NORMAL, 0, nullptr, append);
            if (column < getmaxx(stdscr)) order += restOfLineOrder();
        }
        if (order.empty()) return;
        order += cursorOrder(std::min(frame.cursorRow, getmaxy(stdscr) - 1),
                             std::min(frame.cursorColumn, getmaxx(stdscr) - 1));
        std::fputs(order.c_str(), stdout);
        std::fflush(stdout);
    }
    // ncurses calls a function for each byte.
    static inline std::string order;
    static int append(int byte) {
        order += static_cast<char>(byte);
        return byte;
    }

    void startColours() {
        const char* refused = std::getenv("NO_COLOR");
        if ((refused != nullptr && *refused != '\0') || !has_colors() || start_color() == ERR)
            return;
        hasColours = true;
        const short background = use_default_colors() == OK ? -1 : COLOR_BLACK;
        init_pair(kRed, COLOR_RED, background);
        init_pair(kGreen, COLOR_GREEN, background);
        init_pair(kYellow, COLOR_YELLOW, background);
        constexpr short kNames[] = {COLOR_CYAN,   COLOR_GREEN, COLOR_MAGENTA,
                                    COLOR_YELLOW, COLOR_BLUE,  COLOR_RED};
        for (short name = 0; name < 6; ++name)
            init_pair(static_cast<short>(kFirstName + name), kNames[name], background);
        init_pair(kBar, COLOR_WHITE, COLOR_BLUE);
        init_pair(kBarAlert, COLOR_WHITE, COLOR_RED);
    }
};

std::unique_ptr<Screen> Screen::open(bool isUTF8) {
    std::unique_ptr<Screen> screen(new Screen(isUTF8));
    return screen->impl_->terminal == nullptr ? nullptr : std::move(screen);
}

Screen::Screen(bool isUTF8) : impl_(std::make_unique<Impl>()) {
    const char* type = std::getenv("TERM");
    if (!hasFullScreen(type)) return;
    impl_->terminal = newterm(type, stdout, stdin);
    if (impl_->terminal == nullptr) return;
    impl_->isUTF8 = isUTF8;
    set_escdelay(25);
    raw();  // so that Ctrl-C and others arrive as keys
    noecho();
    nonl();
    keypad(stdscr, TRUE);
    nodelay(stdscr, TRUE);
    for (const auto& [sequence, key] : kSequences) define_key(sequence, key);
    impl_->startColours();
    setBracketedPaste(true);
}

Screen::~Screen() {
    if (impl_->terminal == nullptr) return;
    setBracketedPaste(false);
    endwin();
    delscreen(impl_->terminal);
}

Size Screen::size() const { return {std::max(1, getmaxx(stdscr)), std::max(1, getmaxy(stdscr))}; }

void Screen::resize() {
    winsize size{};
    if (ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) != 0 || size.ws_col == 0 || size.ws_row == 0)
        return;
    resizeterm(std::min<int>(size.ws_row, kMostPlaces), std::min<int>(size.ws_col, kMostPlaces));
    repaint();  // terminals move lines when their size changes
}

void Screen::paint(const Frame& frame) {
    // In a row with emoji of several characters, the terminal does not show what ncurses assumes.
    auto sequences = impl_->rowsWithSequences(frame);
    for (const auto& [row, cells] : impl_->painted) {
        const auto found = sequences.find(row);
        if (row < getmaxy(stdscr) && (found == sequences.end() || found->second != cells))
            wredrawln(stdscr, row, 1);
    }
    erase();
    const int columns = getmaxx(stdscr);
    const int rows = std::min(static_cast<int>(frame.rows.size()), getmaxy(stdscr));
    for (int row = 0; row < rows; ++row) {
        int column = 0;
        for (const auto& cell : frame.rows[static_cast<std::size_t>(row)]) {
            if (column + cell.width > columns) break;
            std::array<wchar_t, Cell::kMost + 1> characters{};
            std::copy_n(cell.characters.begin(), std::min(cell.count, kMostOfLibrary),
                        characters.begin());
            if (cell.isSequence()) {  // leave room; it is painted below
                const bool isAsWide = ::wcwidth(characters[0]) == cell.width;
                characters = {isAsWide ? characters[0] : L'?'};
            }
            if (!impl_->isUTF8) {
                characters[0] = asciiFor(characters[0]);
                characters[1] = 0;
            }
            const auto look = impl_->look(cell);
            cchar_t shown{};
            setcchar(&shown, characters.data(), look.attributes, look.pair, nullptr);
            mvadd_wch(row, column, &shown);
            column += cell.width;
        }
    }
    move(std::min(frame.cursorRow, getmaxy(stdscr) - 1), std::min(frame.cursorColumn, columns - 1));
    refresh();
    if (std::exchange(impl_->isAnew, false)) impl_->painted.clear();
    impl_->paintSequences(frame, sequences);
    impl_->painted = std::move(sequences);
}

void Screen::repaint() {
    clearok(curscr, TRUE);
    impl_->isAnew = true;
}

std::optional<Key> Screen::read() {
    wint_t key = 0;
    const int kind = get_wch(&key);
    if (kind == ERR) return std::nullopt;
    if (kind == KEY_CODE_YES && key == kWordLeft) return Key{Key::Code::Alt, L'b'};
    if (kind == KEY_CODE_YES && key == kWordRight) return Key{Key::Code::Alt, L'f'};
    if (kind == KEY_CODE_YES) return Key{namedKey(key).value_or(Key::Code::Other), 0};
    if (key == 27) {
        wint_t next = 0;
        if (get_wch(&next) != OK || next < 0x20) return Key{};
        if (next == L'[' || next == L'O') {
            skipSequence(next);
            return Key{};
        }
        return Key{Key::Code::Alt, static_cast<wchar_t>(next)};
    }
    if (key == '\r' || key == '\n') return Key{Key::Code::Enter, 0};
    if (key == '\t') return Key{Key::Code::Tab, 0};
    if (key == 8 || key == 127) return Key{Key::Code::Backspace, 0};
    if (key < 0x20) return Key{Key::Code::Control, static_cast<wchar_t>(key + 'a' - 1)};
    return Key{Key::Code::Character, static_cast<wchar_t>(key)};
}

void Screen::suspend() {
    setBracketedPaste(false);
    // ncurses restores the terminal, stops the process, and takes the terminal back later. Without
    // job control, the program just continues.
    std::raise(SIGTSTP);
    setBracketedPaste(true);
    resize();
}

}  // namespace chat
