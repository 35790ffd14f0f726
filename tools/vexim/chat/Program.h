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

/// The chat on a full screen: keys in, frames out, and between them the conversations.
class Program {
public:
    Program(std::shared_ptr<VXIMConversations> conversations, const Credentials& credentials,
            std::unique_ptr<Screen> screen);

    /// Runs until the user leaves. `signals` is a descriptor (signalfd) of SIGWINCH and of those
    /// that end the program. 0 after a quit, 1 when the login was refused or there is no store;
    /// `complaint` then says why.
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
    /// A long one, which is read from its first line on.
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
    Address drafting_;                        // the conversation that the line belongs to
    std::map<Address, std::wstring> drafts_;  // the others' lines
    std::shared_ptr<Session> session_;
    Sender sender_;
    Places places_;
    std::optional<std::wstring> paste_;  // what has come of it while one is going on
    bool isLeaving_ = false;
    int status_ = 0;
    std::string complaint_;
};

}  // namespace chat
