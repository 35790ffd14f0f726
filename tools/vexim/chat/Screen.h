#pragma once

#include <memory>
#include <optional>

#include "Layout.h"

namespace chat {

struct Key {
    enum class Code {
        Character,  ///< `character` was typed
        Control,    ///< with Ctrl; `character` is in lower case
        Alt,        ///< with Alt, or after Esc
        Enter,
        Tab,
        Backspace,
        Delete,
        Left,
        Right,
        Up,
        Down,
        Home,
        End,
        PageUp,
        PageDown,
        PasteBegin,
        PasteEnd,
        Other,
    };
    Code code = Code::Other;
    wchar_t character = 0;
};

/// The terminal in full-screen mode, as long as this object lives. Only one at a time.
class Screen {
public:
    /// Returns nullptr if the terminal cannot do it (TERM is unset or unknown, or it cannot move
    /// its cursor). `isUTF8` says whether the terminal reads UTF-8; otherwise characters outside
    /// ASCII are painted as '?'.
    static std::unique_ptr<Screen> open(bool isUTF8);
    ~Screen();
    Screen(const Screen&) = delete;
    Screen& operator=(const Screen&) = delete;

    Size size() const;
    /// Asks the terminal for its size and uses it.
    void resize();
    void paint(const Frame& frame);
    /// The next frame is painted completely.
    void repaint();
    /// The next key; nullopt if none was typed. Never waits.
    std::optional<Key> read();
    /// Restores the terminal, stops the process like Ctrl-Z, and takes the terminal back when it
    /// continues.
    void suspend();

private:
    explicit Screen(bool isUTF8);
    struct Impl;
    std::unique_ptr<Impl> impl_;
};

}  // namespace chat
