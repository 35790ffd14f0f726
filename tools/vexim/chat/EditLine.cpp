#include "EditLine.h"

#include <cwchar>
#include <cwctype>

namespace chat {
namespace {

constexpr std::size_t kRemembered = 500;

bool isWord(wchar_t c) {
    return std::iswalnum(static_cast<std::wint_t>(c)) != 0 || ::wcwidth(c) == 0;
}

}  // namespace

void EditLine::insert(std::wstring_view text) {
    if (text_.size() + text.size() > kLongest) text = text.substr(0, kLongest - text_.size());
    text_.insert(cursor_, text);
    cursor_ += text.size();
}

std::size_t EditLine::before(std::size_t at) const {
    if (at > 0) --at;
    while (at > 0 && continues(text_, at)) --at;
    return at;
}

std::size_t EditLine::after(std::size_t at) const {
    if (at < text_.size()) ++at;
    while (at < text_.size() && continues(text_, at)) ++at;
    return at;
}

std::size_t EditLine::wordBefore(std::size_t at) const {
    while (at > 0 && !isWord(text_[at - 1])) --at;
    while (at > 0 && isWord(text_[at - 1])) --at;
    return at;
}

std::size_t EditLine::wordAfter(std::size_t at) const {
    while (at < text_.size() && !isWord(text_[at])) ++at;
    while (at < text_.size() && isWord(text_[at])) ++at;
    return at;
}

void EditLine::erase(std::size_t from, std::size_t to) {
    text_.erase(from, to - from);
    cursor_ = from;
}

void EditLine::cut(std::size_t from, std::size_t to) {
    if (from == to) return;
    cut_ = text_.substr(from, to - from);
    erase(from, to);
}

void EditLine::show(std::size_t past) {
    if (place_ == past_.size()) typed_ = text_;
    place_ = past;
    text_ = place_ == past_.size() ? typed_ : past_[place_];
    cursor_ = text_.size();
}

void EditLine::previous() {
    if (place_ > 0) show(place_ - 1);
}

void EditLine::next() {
    if (place_ < past_.size()) show(place_ + 1);
}

std::string EditLine::take() {
    std::string line = narrow(text_);
    if (!text_.empty() && (past_.empty() || past_.back() != text_)) past_.push_back(text_);
    if (past_.size() > kRemembered) past_.erase(past_.begin());
    clear();
    return line;
}

void EditLine::clear() { set({}, 0); }

void EditLine::set(std::wstring text, std::size_t cursor) {
    text_ = std::move(text);
    cursor_ = cursor;
    place_ = past_.size();
}

EditLine::Shown EditLine::shown(int width) const {
    const auto cellsBetween = [this](std::size_t from, std::size_t to) {
        std::wstring part = text_.substr(from, to - from);
        for (auto& c : part) {
            if (c == L'\n') c = L'⏎';
        }
        return cellsOf(narrow(part));
    };
    // Show as much before the cursor as fits; the cursor itself needs one column.
    Shown result;
    std::size_t from = cursor_;
    while (from > 0) {
        const auto earlier = before(from);
        const int columns = widthOf(cellsBetween(earlier, from));
        if (result.cursorColumn + columns > width - 1) break;
        result.cursorColumn += columns;
        from = earlier;
    }
    result.cells = cellsBetween(from, cursor_);
    int used = result.cursorColumn;
    for (std::size_t at = cursor_; at < text_.size();) {
        const auto next = after(at);
        const auto cells = cellsBetween(at, next);
        used += widthOf(cells);
        if (used > width) break;
        result.cells += cells;
        at = next;
    }
    return result;
}

}  // namespace chat
