#include "Page.h"

#include <algorithm>
#include <ctime>
#include <functional>
#include <iomanip>
#include <sstream>
#include <string>

namespace chat {
namespace {

constexpr int kWideEnoughForTime = 24;

std::tm localTime(double time) {
    const auto seconds = static_cast<std::time_t>(std::clamp(time, 0.0, 253'402'300'799.0));
    std::tm parts{};
    ::localtime_r(&seconds, &parts);
    return parts;
}

std::string formatted(double time, const char* format) {
    const std::tm parts = localTime(time);
    std::ostringstream text;
    text << std::put_time(&parts, format);
    return text.str();
}

bool isSameDay(double one, double other) {
    const std::tm a = localTime(one);
    const std::tm b = localTime(other);
    return a.tm_yday == b.tm_yday && a.tm_year == b.tm_year;
}

Cells nameCells(const Entry& entry) {
    Cells cells = cellsOf(harmlessLine(entry.sender), entry.isOwn ? Style::Own : Style::Name);
    if (cells.size() > 24) cells = clipped(cells, 24);
    const auto hue = static_cast<std::uint8_t>(std::hash<std::string>()(entry.sender) % 6);
    for (auto& cell : cells) cell.hue = hue;
    return cells;
}

std::string progressBar(int percent) {
    constexpr int kWidth = 20;
    const int filled = std::clamp(percent, 0, 100) * kWidth / 100;
    return "[" + std::string(static_cast<std::size_t>(filled), '#') +
           std::string(static_cast<std::size_t>(kWidth - filled), '-') + "] " +
           std::to_string(std::clamp(percent, 0, 100)) + "%";
}

/// "[image] dot.png", followed by its progress or by how to fetch it.
Cells fileCells(const Entry& entry) {
    const auto& file = *entry.file;
    Cells cells = cellsOf("[" + file.kind + "] ", Style::Strong);
    cells += cellsOf(harmlessLine(file.name));
    if (file.percent) {
        cells += cellsOf(" " + progressBar(*file.percent) +
                             (file.pace.empty() ? "" : " " + file.pace) + " /cancel",
                         Style::Strong);
    } else if (file.number > 0) {
        cells += cellsOf(" (/save " + std::to_string(file.number) + ")", Style::Dim);
    }
    return cells;
}

Cells deliveryCells(const Entry& entry) {
    switch (entry.delivery) {
        case Delivery::Received:
        case Delivery::Handed:
        case Delivery::Delivered: return {};
        case Delivery::Waiting:
            return cellsOf(" (waits to be sent" +
                               (entry.failure.empty() ? "" : ": " + harmlessLine(entry.failure)) +
                               ")",
                           Style::Bad);
        case Delivery::Sending: return entry.file ? Cells() : cellsOf(" …", Style::Dim);
        case Delivery::Unconfirmed: return cellsOf(" (not confirmed yet)", Style::Bad);
        case Delivery::Failed:
            return cellsOf(" (not sent: " + harmlessLine(entry.failure) + "; /retry)", Style::Bad);
    }
    return {};
}

Cells contentCells(const Entry& entry) {
    if (entry.isNotice) {
        Cells notice = cellsOf("-- ", Style::Dim);
        return notice += cellsOf(entry.text, entry.isAlert ? Style::Bad : Style::Dim);
    }
    Cells cells = nameCells(entry);
    cells += cellsOf(": ", Style::Dim);
    cells += entry.file ? fileCells(entry) : cellsOf(entry.text);
    return cells += deliveryCells(entry);
}

/// Where the explanation begins in a line like "  /quit    log out and quit"; 0 if the line is not
/// like that.
std::size_t explanationAt(const Cells& line) {
    const auto isBlank = [&](std::size_t at) { return at < line.size() && line[at].is(L' '); };
    if (!isBlank(0) || !isBlank(1) || isBlank(2)) return 0;
    for (std::size_t at = 2; at + 1 < line.size(); ++at) {
        if (!isBlank(at) || !isBlank(at + 1)) continue;
        while (isBlank(at)) ++at;
        return at < line.size() ? at : 0;
    }
    return 0;
}

/// A notice, wrapped. The explanations of a table continue in their own column.
std::vector<Cells> wrappedNotice(const Cells& cells, int width) {
    constexpr int kLeast = 12;  // columns that an explanation needs
    std::vector<Cells> lines;
    for (std::size_t from = 0; from <= cells.size();) {
        const auto begin = cells.begin() + static_cast<std::ptrdiff_t>(from);
        const Cells line(begin, std::find_if(begin, cells.end(),
                                             [](const Cell& cell) { return cell.is(L'\n'); }));
        from += line.size() + 1;
        const auto at = static_cast<std::ptrdiff_t>(explanationAt(line));
        Cells margin(line.begin(), line.begin() + at);
        if (widthOf(margin) + kLeast > width) margin.clear();
        const auto rest = line.begin() + (margin.empty() ? 0 : at);
        for (auto& part : wrapped(Cells(rest, line.end()), width - widthOf(margin))) {
            lines.push_back(margin);
            lines.back() += part;
            margin.assign(static_cast<std::size_t>(widthOf(margin)), cellsOf(" ").front());
        }
    }
    return lines;
}

Cells dayLine(double time, int width) {
    return clipped(cellsOf("---- " + formatted(time, "%A, %e %B %Y") + " ----", Style::Dim), width);
}

Cells topLine(const Conversation& conversation, int width) {
    const auto say = [&](const char* words) { return clipped(cellsOf(words, Style::Dim), width); };
    switch (conversation.older) {
        case Older::Unknown:
        case Older::There: return say("(PageUp loads older messages)");
        case Older::Loading: return say("(loading …)");
        case Older::Nothing: break;
    }
    if (conversation.address.kind == Kind::Console)
        return say("(Alt-1 … Alt-9: open a conversation from the list; /help: everything else)");
    return say(conversation.hasHistory() ? "(the beginning)" : "(rooms keep no history)");
}

/// A place in the conversation: an entry and one of its lines.
struct Place {
    std::size_t index = 0;
    int line = 0;
};

/// Walks through the lines of a conversation, wrapped at a width.
class Walk {
public:
    Walk(const Conversation& conversation, int width)
        : conversation_(conversation),
          width_(width) {}

    int count(std::size_t index) const {
        return static_cast<int>(linesOfEntry(conversation_, index, width_).size());
    }
    bool up(Place& place) const {
        if (place.line == 0 && place.index == 0) return false;
        place = place.line > 0 ? Place{place.index, place.line - 1}
                               : Place{place.index - 1, count(place.index - 1) - 1};
        return true;
    }
    bool down(Place& place) const {
        const bool isInside = place.line + 1 < count(place.index);
        if (!isInside && place.index + 1 == conversation_.entries().size()) return false;
        place = isInside ? Place{place.index, place.line + 1} : Place{place.index + 1, 0};
        return true;
    }
    /// The lowest line to show: the anchor's, or a later one if the page would not be full; without
    /// an anchor, the last line.
    Place lowest(int height) const {
        const auto& anchor = conversation_.anchor;
        const auto index = anchor ? conversation_.indexOf(anchor->entry) : std::nullopt;
        const std::size_t last = conversation_.entries().size() - 1;
        if (!index) return {last, count(last) - 1};
        Place place{*index, std::min(anchor->line, count(*index) - 1)};
        Place top = place;
        int lines = 1;
        while (lines < height && up(top)) ++lines;
        while (lines < height && down(place)) ++lines;
        return place;
    }

private:
    const Conversation& conversation_;
    int width_;
};

}  // namespace

std::vector<Cells> linesOfEntry(const Conversation& conversation, std::size_t index, int width) {
    const auto& entry = conversation.entries()[index];
    std::vector<Cells> lines;
    if (index == 0) lines.push_back(topLine(conversation, width));
    if (index == 0 || !isSameDay(conversation.entries()[index - 1].time, entry.time))
        lines.push_back(dayLine(entry.time, width));
    const bool hasTime = width >= kWideEnoughForTime;
    Cells margin = hasTime ? cellsOf(formatted(entry.time, "%H:%M "), Style::Dim) : Cells();
    const int room = std::max(1, width - widthOf(margin));
    for (auto& line : entry.isNotice ? wrappedNotice(contentCells(entry), room)
                                     : wrapped(contentCells(entry), room)) {
        lines.push_back(margin);
        lines.back() += line;
        if (hasTime) margin = cellsOf("      ");
    }
    return lines;
}

std::vector<Cells> linesOf(const Conversation& conversation, int width, int height) {
    std::vector<Cells> lines;  // the lowest comes first
    if (height <= 0) return lines;
    if (conversation.entries().empty()) return {topLine(conversation, width)};
    const Place start = Walk(conversation, width).lowest(height);
    for (std::size_t index = start.index + 1;
         index-- > 0 && static_cast<int>(lines.size()) < height;) {
        auto entryLines = linesOfEntry(conversation, index, width);
        if (index == start.index) entryLines.resize(static_cast<std::size_t>(start.line) + 1);
        for (auto line = entryLines.rbegin();
             line != entryLines.rend() && static_cast<int>(lines.size()) < height; ++line) {
            lines.push_back(std::move(*line));
        }
    }
    std::reverse(lines.begin(), lines.end());
    return lines;
}

void showFromItsStart(Conversation& conversation, int width, int height) {
    const auto last = conversation.entries().size() - 1;
    const auto lines = static_cast<int>(linesOfEntry(conversation, last, width).size());
    if (lines > height) conversation.anchor = Anchor{conversation.entries().back().id, height - 1};
}

bool scroll(Conversation& conversation, int width, int height, int lines) {
    const auto& entries = conversation.entries();
    if (entries.empty()) return true;
    const Walk walk(conversation, width);
    Place place = walk.lowest(height);
    while (lines > 0 && walk.down(place)) --lines;
    // Do not scroll up so far that the page would not be full.
    Place top = place;
    int above = 0;
    while (above < height - 1 && walk.up(top)) ++above;
    bool isAtTop = above < height - 1;
    for (; lines < 0 && !isAtTop; ++lines) {
        isAtTop = !walk.up(top);
        if (!isAtTop) walk.up(place);
    }
    if (top.index == 0 && top.line == 0) isAtTop = true;
    const bool isAtEnd =
        place.index + 1 == entries.size() && place.line + 1 == walk.count(place.index);
    conversation.anchor.reset();
    if (!isAtEnd) conversation.anchor = Anchor{entries[place.index].id, place.line};
    return isAtTop;
}

}  // namespace chat
