#pragma once

#include <memory>
#include <optional>

#include "Layout.h"

namespace chat {

struct Key {
    enum class Code {
        Character,  ///< `character` was typed
        Control,    ///< with Ctrl; `character` is the small letter
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

/// The terminal in full-screen use, from construction to destruction. One at a time.
class Screen {
public:
    /// nullptr when the terminal cannot do it (TERM is unset or unknown, or it cannot move its
    /// cursor). `isUTF8`: whether the terminal reads UTF-8; else what is not ASCII is painted as
    /// '?'.
    static std::unique_ptr<Screen> open(bool isUTF8);
    ~Screen();
    Screen(const Screen&) = delete;
    Screen& operator=(const Screen&) = delete;

    Size size() const;
    /// Asks the terminal for its size, and takes it.
    void resize();
    void paint(const Frame& frame);
    /// The next painting paints everything.
    void repaint();
    /// The next key, or nullopt when none was typed. Never waits.
    std::optional<Key> read();
    /// Gives the terminal back, stops the process as Ctrl-Z does, and takes the terminal again.
    void suspend();

private:
    explicit Screen(bool isUTF8);
    struct Impl;
    std::unique_ptr<Impl> impl_;
};

}  // namespace chat
