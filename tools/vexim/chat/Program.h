#pragma once

#include <map>
#include <memory>
#include <string>

#include "../Account.h"
#include "../HostLoop.h"
#include "Completion.h"
#include "EditLine.h"
#include "Places.h"
#include "Roster.h"
#include "Screen.h"
#include "Sender.h"
#include "Session.h"

namespace chat {

/// The full-screen chat: it reads keys, changes the conversations and paints them.
class Program {
public:
    Program(std::shared_ptr<VXIMConversations> conversations, const Credentials& credentials,
            std::unique_ptr<Screen> screen);

    /// Runs until the user leaves. `signals` is a descriptor (signalfd) for SIGWINCH and the
    /// signals that end the program. Returns 0 after a quit, and 1 if the login was refused or
    /// there is no store; `complaint` then says why.
    int run(const Peer& peer, int signals);
    const std::string& complaint() const noexcept { return complaint_; }

private:
    void readKeys(bool isOver);
    void readSignals(int signals);
    void didPress(const Key& key);
    void didPressControl(wchar_t letter);
    void didPressAlt(wchar_t character);
    void endPaste();
    void complete();
    void interrupt();
    void take();

    void obey(const Command& command);
    void save(const Command& command);
    void scrollBy(int pages);
    Size page() const;
    /// For long notices, which are read from the first line on.
    void noticeFromItsStart(std::string text);
    void notice(std::string text, bool isAlert = false);
    KnownNames knownNames() const;
    void leave();
    void end(int status);
    void tick();
    void keepDraft();
    void paint();

    std::unique_ptr<Screen> screen_;
    HostLoop loop_;
    Roster roster_;
    EditLine line_;
    Address drafting_;                        // the conversation of the line being typed
    std::map<Address, std::wstring> drafts_;  // the lines of the others
    std::shared_ptr<Session> session_;
    Sender sender_;
    Places places_;
    std::optional<std::wstring> paste_;  // the part of a paste that has arrived
    bool isLeaving_ = false;
    int status_ = 0;
    std::string complaint_;
};

}  // namespace chat
