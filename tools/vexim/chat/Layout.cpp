#include "Layout.h"

#include <algorithm>
#include <string>

#include "Page.h"

namespace chat {
namespace {

constexpr int kRoomForList = 60;  // on a screen this wide the list of conversations is shown

int listWidth(Size screen) {
    return screen.columns < kRoomForList ? 0 : std::clamp(screen.columns / 4, 18, 30);
}
bool hasTitle(Size screen) { return screen.rows >= 5; }
bool hasStatus(Size screen) { return screen.rows >= 3; }

Cells filled(Cells cells, int width, Style style = Style::Normal) {
    cells = clipped(cells, width);
    for (int used = widthOf(cells); used < width; ++used) cells += cellsOf(" ", style);
    return cells;
}

std::string mark(const Conversation& conversation) {
    if (conversation.gone) return "x";
    switch (conversation.address.kind) {
        case Kind::Console: return " ";
        case Kind::Friend: return !conversation.online ? "?" : *conversation.online ? "●" : "○";
        case Kind::Group: return "#";
        case Kind::Room: return "@";
    }
    return " ";
}

std::string titleOf(const Conversation& conversation) { return harmlessLine(conversation.title); }

/// The id, " (g1)", to stand beside a name, because names are not unique.
std::string idBeside(const Conversation& conversation) {
    const auto& id = conversation.address.id;
    return conversation.title == id || id.empty() ? "" : " (" + harmlessLine(id) + ")";
}

/// "2 # Demo group      3": number, kind or presence, name, unread.
Cells listRow(const Conversation& conversation, std::size_t number, bool isCurrent, int width) {
    const Style style = isCurrent                 ? Style::Current
                        : conversation.unread > 0 ? Style::Strong
                                                  : Style::Normal;
    const Style markStyle = conversation.online.value_or(false) && !isCurrent ? Style::Good : style;
    const std::string unread =
        conversation.unread > 0 ? " " + std::to_string(std::min(conversation.unread, 999)) : "";
    Cells name =
        cellsOf(number < 10 ? std::to_string(number) + " " : "  ", isCurrent ? style : Style::Dim);
    name += cellsOf(mark(conversation) + " ", markStyle);
    name += cellsOf(titleOf(conversation), style);
    Cells row =
        filled(std::move(name), std::max(0, width - static_cast<int>(unread.size())), style);
    row += cellsOf(unread, isCurrent ? style : Style::Unread);
    return row;
}

std::string presence(const Conversation& conversation) {
    switch (conversation.address.kind) {
        case Kind::Console: return "";
        case Kind::Friend:
            if (conversation.gone) return ", not in your list";
            return !conversation.online ? "" : *conversation.online ? ", online" : ", offline";
        case Kind::Group:
        case Kind::Room:
            if (conversation.gone) return ", not in your list";
            if (conversation.members.empty()) return "";
            return ", " + std::to_string(conversation.members.size()) +
                   (conversation.members.size() == 1 ? " member" : " members");
    }
    return "";
}

const char* kindName(Kind kind) {
    switch (kind) {
        case Kind::Console: return "";
        case Kind::Friend: return "friend ";
        case Kind::Group: return "group ";
        case Kind::Room: return "room ";
    }
    return "";
}

/// The current conversation's name, and on the right what is unread elsewhere if the list does not
/// show all conversations.
Cells titleRow(const Roster& roster, int width, bool isListWhole) {
    const auto& current = roster.current();
    int elsewhere = 0;
    for (const auto& one : roster.all()) {
        if (one.get() != &current) elsewhere += one->unread;
    }
    std::string right;
    if (current.anchor)
        right = current.unread > 0 ? " " + std::to_string(current.unread) + " new below "
                                   : " PageDown: newer ";
    if (elsewhere > 0 && !isListWhole) right += " +" + std::to_string(elsewhere) + " ";
    const std::string left = " " + std::to_string(roster.currentIndex()) + " " +
                             kindName(current.address.kind) + titleOf(current) + idBeside(current) +
                             presence(current);
    const Cells rightCells = cellsOf(right, Style::BarAlert);
    const int room = std::max(0, width - widthOf(rightCells));
    Cells row = filled(cellsOf(left, Style::Bar), room, Style::Bar);
    row += rightCells;
    return clipped(row, width);
}

/// As much of the list as fits, around the current conversation.
std::vector<Cells> listRows(const Roster& roster, int width, int height) {
    const auto count = static_cast<int>(roster.all().size());
    const int first = std::clamp(static_cast<int>(roster.currentIndex()) - height / 2, 0,
                                 std::max(0, count - height));
    std::vector<Cells> rows;
    for (int at = first; at < count && at < first + height; ++at) {
        const auto index = static_cast<std::size_t>(at);
        rows.push_back(listRow(*roster.all()[index], index, index == roster.currentIndex(), width));
    }
    return rows;
}

/// The state, on several rows if it is long, because an error is useless without its end.
std::vector<Cells> statusRows(Size screen, const StatusLine& status) {
    if (!hasStatus(screen)) return {};
    const Style style = status.isAlert ? Style::BarAlert : Style::Bar;
    const auto most = static_cast<std::size_t>(std::max(1, screen.rows / 3));
    auto lines =
        wrapped(cellsOf(harmlessLine(status.text), style), std::max(1, screen.columns - 2));
    if (lines.size() > most) {
        for (std::size_t i = most; i < lines.size(); ++i) lines[most - 1] += lines[i];
        lines.resize(most);
    }
    std::vector<Cells> rows;
    for (auto& line : lines) {
        Cells row = cellsOf(" ", style);
        row += line;
        rows.push_back(filled(std::move(row), screen.columns, style));
    }
    return rows;
}

}  // namespace

Size pageSize(Size screen, const StatusLine& status) {
    const int list = listWidth(screen);
    return {list == 0 ? screen.columns : screen.columns - list - 1,
            std::max(0, screen.rows - 1 - hasTitle(screen) -
                            static_cast<int>(statusRows(screen, status).size()))};
}

Frame draw(const Roster& roster, const StatusLine& status, const EditLine& line, Size size) {
    Frame frame;
    const Size page = pageSize(size, status);
    const bool isListWhole =
        listWidth(size) > 0 && static_cast<int>(roster.all().size()) <= page.rows;
    if (hasTitle(size)) frame.rows.push_back(titleRow(roster, size.columns, isListWhole));

    auto lines = linesOf(roster.current(), page.columns, page.rows);
    // A short conversation stands at the bottom of the page.
    lines.insert(lines.begin(), static_cast<std::size_t>(page.rows) - lines.size(), Cells());
    if (const int width = listWidth(size); width > 0) {
        auto list = listRows(roster, width, page.rows);
        list.resize(lines.size());
        for (std::size_t row = 0; row < lines.size(); ++row) {
            Cells whole = filled(std::move(list[row]), width);
            whole += cellsOf("│", Style::Dim);
            whole += lines[row];
            lines[row] = std::move(whole);
        }
    }
    for (auto& row : lines) frame.rows.push_back(std::move(row));

    for (auto& row : statusRows(size, status)) frame.rows.push_back(std::move(row));

    const Cells prompt = size.columns >= 8 ? cellsOf("> ", Style::Dim) : Cells();
    const auto typed = line.shown(size.columns - widthOf(prompt));
    Cells input = prompt;
    input += typed.cells;
    frame.cursorRow = static_cast<int>(frame.rows.size());
    frame.cursorColumn =
        std::min(widthOf(prompt) + typed.cursorColumn, std::max(0, size.columns - 1));
    frame.rows.push_back(std::move(input));
    return frame;
}

}  // namespace chat
