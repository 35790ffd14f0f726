#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "Text.h"

namespace chat {

/// The line that is being typed, and the lines typed before. A position is never between a
/// character and its combining marks.
///
/// The class has more than 25 functions because each editing key has one.
class EditLine {
public:
    /// Longer input is cut off.
    static constexpr std::size_t kLongest = 65'536;

    void insert(std::wstring_view text);
    void left() { cursor_ = before(cursor_); }
    void right() { cursor_ = after(cursor_); }
    void wordLeft() { cursor_ = wordBefore(cursor_); }
    void wordRight() { cursor_ = wordAfter(cursor_); }
    void home() { cursor_ = 0; }
    void end() { cursor_ = text_.size(); }
    void eraseLeft() { erase(before(cursor_), cursor_); }
    void eraseRight() { erase(cursor_, after(cursor_)); }
    // Each of these remembers what it cuts, for `yank`.
    void cutWordLeft() { cut(wordBefore(cursor_), cursor_); }
    void cutWordRight() { cut(cursor_, wordAfter(cursor_)); }
    void cutLeft() { cut(0, cursor_); }
    void cutRight() { cut(cursor_, text_.size()); }
    void yank() { insert(std::wstring(cut_)); }

    // Move through the earlier lines. The line being typed comes last, and is kept.
    void previous();
    void next();
    /// Returns the line, remembers it, and starts an empty one.
    std::string take();
    void clear();
    void set(std::wstring text, std::size_t cursor);

    bool isEmpty() const noexcept { return text_.empty(); }
    const std::wstring& text() const noexcept { return text_; }
    std::size_t cursor() const noexcept { return cursor_; }

    struct Shown {
        Cells cells;
        int cursorColumn = 0;
    };
    /// As much of the line around the cursor as fits into `width` columns. A line break is shown as
    /// "⏎".
    Shown shown(int width) const;

private:
    std::size_t before(std::size_t at) const;
    std::size_t after(std::size_t at) const;
    std::size_t wordBefore(std::size_t at) const;
    std::size_t wordAfter(std::size_t at) const;
    void erase(std::size_t from, std::size_t to);
    void cut(std::size_t from, std::size_t to);
    void show(std::size_t past);

    std::wstring text_;
    std::size_t cursor_ = 0;
    std::wstring cut_;
    std::vector<std::wstring> past_;  // oldest first
    std::size_t place_ = 0;           // an index into past_; its size means the line being typed
    std::wstring typed_;              // that line, while an earlier one is shown
};

}  // namespace chat
