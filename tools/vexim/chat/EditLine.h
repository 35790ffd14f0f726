#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "Text.h"

namespace chat {

/// The line that is being typed, and those typed before. Positions never lie between a character
/// and its combining marks.
///
/// It has more than 25 functions: one for each key that edits.
class EditLine {
public:
    /// Longer input than this is not taken.
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
    // What these cut, `yank` inserts again.
    void cutWordLeft() { cut(wordBefore(cursor_), cursor_); }
    void cutWordRight() { cut(cursor_, wordAfter(cursor_)); }
    void cutLeft() { cut(0, cursor_); }
    void cutRight() { cut(cursor_, text_.size()); }
    void yank() { insert(std::wstring(cut_)); }

    // Through the lines typed before; the one being typed comes last and is kept.
    void previous();
    void next();
    /// The line, which then is empty; it is remembered.
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
    /// The part around the cursor that fits into `width` columns; a line break shows as "⏎".
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
    std::vector<std::wstring> past_;  // the oldest first
    std::size_t place_ = 0;           // in past_; its size is the line being typed
    std::wstring typed_;              // that line, while another is shown
};

}  // namespace chat
