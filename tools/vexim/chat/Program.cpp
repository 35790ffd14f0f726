#include "Program.h"

#include <sys/signalfd.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <exception>
#include <functional>
#include <map>
#include <stdexcept>

#include "Files.h"
#include "Page.h"

namespace chat {

Program::Program(std::shared_ptr<VXIMConversations> conversations, const Credentials& credentials,
                 std::unique_ptr<Screen> screen)
    : screen_(std::move(screen)),
      session_(std::make_shared<Session>(std::move(conversations), credentials, roster_,
                                         [this](const std::string& reason) {
                                             complaint_ = reason;
                                             end(1);
                                         })),
      sender_(*session_, roster_),
      places_(*session_, roster_) {}

int Program::run(const Peer& peer, int signals) {
    if (peer.friendId) places_.show(Kind::Friend, *peer.friendId);
    if (peer.groupId) places_.show(Kind::Group, *peer.groupId);
    if (peer.roomId) places_.show(Kind::Room, *peer.roomId);
    loop_.watch(STDIN_FILENO, [this](bool isOver) { readKeys(isOver); });
    loop_.watch(signals, [this, signals](bool) { readSignals(signals); });
    session_->start();
    tick();
    loop_.run([this] { paint(); });
    sender_.cancelAll();
    // Downloads remove their partial files when they end, and their ends arrive over the queue.
    const auto isClosed = std::make_shared<bool>(false);
    session_->closeStore([isClosed] { *isClosed = true; });
    vexim::MainQueue::shared().runUntil([this, isClosed] { return sender_.isIdle() && *isClosed; },
                                        std::chrono::seconds(5));
    return status_;
}

void Program::tick() {
    session_->tick();
    vexim::MainQueue::shared().after(std::chrono::seconds(1), [this] { tick(); });
}

/// Keeps what is being typed with its conversation, so that it is not sent to another one. Text
/// typed in the console moves along, because nothing can be sent there.
void Program::keepDraft() {
    const Address& now = roster_.current().address;
    if (now == drafting_) return;
    auto& next = drafts_[now];
    if (drafting_.kind != Kind::Console || !next.empty()) {
        drafts_[drafting_] = line_.text();
        line_.set(next, next.size());
    }
    drafting_ = now;
}

void Program::paint() {
    session_->look(roster_.current());
    keepDraft();
    screen_->paint(
        draw(roster_, {session_->statusLine(), session_->isAlert()}, line_, screen_->size()));
}

void Program::notice(std::string text, bool isAlert) {
    roster_.notice(std::move(text), Session::now(), isAlert);
}

Size Program::page() const {
    return pageSize(screen_->size(), {session_->statusLine(), session_->isAlert()});
}

void Program::noticeFromItsStart(std::string text) {
    notice(std::move(text));
    showFromItsStart(roster_.current(), page().columns, page().rows);
}

void Program::end(int status) {
    status_ = status;
    loop_.quit();
}

void Program::leave() {
    if (isLeaving_) return end(status_);  // the second time, do not wait
    isLeaving_ = true;
    sender_.cancelAll();
    session_->leave([this] { end(status_); });
}

void Program::readSignals(int signals) {
    signalfd_siginfo signal{};
    while (::read(signals, &signal, sizeof(signal)) == static_cast<ssize_t>(sizeof(signal))) {
        if (signal.ssi_signo == SIGWINCH) {
            screen_->resize();
            scrollBy(0);
        } else {
            // After SIGHUP the terminal is gone, so do not wait.
            isLeaving_ = isLeaving_ || signal.ssi_signo == SIGHUP;
            leave();
        }
    }
}

void Program::readKeys(bool isOver) {
    while (const auto key = screen_->read()) {
        try {
            didPress(*key);
        } catch (const std::exception& error) {
            notice(error.what(), true);
        }
    }
    if (isOver) end(status_);
}

void Program::didPress(const Key& key) {
    using Code = Key::Code;
    keepDraft();  // the last key may have switched, and several keys may come between two paintings
    if (paste_ && key.code != Code::PasteEnd) {
        if (key.code == Code::Character) *paste_ += key.character;
        if (key.code == Code::Enter) *paste_ += L'\n';
        if (key.code == Code::Tab) *paste_ += L'\t';
        return;
    }
    switch (key.code) {
        case Code::Character:
            return line_.insert(wide(harmless(narrow(std::wstring(1, key.character)))));
        case Code::Control: return didPressControl(key.character);
        case Code::Alt: return didPressAlt(key.character);
        case Code::Enter: return take();
        case Code::Tab: return complete();
        case Code::Backspace: return line_.eraseLeft();
        case Code::Delete: return line_.eraseRight();
        case Code::Left: return line_.left();
        case Code::Right: return line_.right();
        case Code::Up: return line_.previous();
        case Code::Down: return line_.next();
        case Code::Home: return line_.home();
        case Code::End: return line_.end();
        case Code::PageUp: return scrollBy(-1);
        case Code::PageDown: return scrollBy(1);
        case Code::PasteBegin: paste_.emplace(); return;
        case Code::PasteEnd: return endPaste();
        case Code::Other: return;
    }
}

void Program::didPressControl(wchar_t letter) {
    switch (letter) {
        case L'a': return line_.home();
        case L'b': return line_.left();
        case L'c': return interrupt();
        case L'd': return line_.isEmpty() ? leave() : line_.eraseRight();
        case L'e': return line_.end();
        case L'f': return line_.right();
        case L'k': return line_.cutRight();
        case L'l': return screen_->repaint();
        case L'n': return roster_.selectBy(1);
        case L'p': return roster_.selectBy(-1);
        case L'u': return line_.cutLeft();
        case L'w': return line_.cutWordLeft();
        case L'y': return line_.yank();
        case L'z': return screen_->suspend();
        default: return;
    }
}

void Program::didPressAlt(wchar_t character) {
    switch (character) {
        case L'a':
            if (!roster_.selectUnread()) notice("nothing is unread");
            return;
        case L'b': return line_.wordLeft();
        case L'f': return line_.wordRight();
        case L'd': return line_.cutWordRight();
        case 127: return line_.cutWordLeft();
        default: break;
    }
    if (character < L'0' || character > L'9') return;
    if (!roster_.selectAt(static_cast<std::size_t>(character - L'0')))
        notice("there are not that many conversations");
}

void Program::endPaste() {
    std::wstring pasted = wide(harmless(narrow(std::exchange(paste_, std::nullopt).value_or(L""))));
    // A line break at the end of pasted text does not send it.
    while (pasted.ends_with(L'\n')) pasted.pop_back();
    line_.insert(pasted);
}

void Program::interrupt() {
    if (sender_.cancelNewest()) return;
    if (!line_.isEmpty()) return line_.clear();
    if (isLeaving_) return end(status_);
    notice("/quit or Ctrl-D leaves");
}

void Program::scrollBy(int pages) {
    const Size page = this->page();
    auto& conversation = roster_.current();
    if (scroll(conversation, page.columns, page.rows, pages * std::max(1, page.rows - 1)) &&
        pages < 0) {
        session_->loadOlder(conversation.address);
    }
    if (!conversation.anchor) roster_.follow();
}

KnownNames Program::knownNames() const {
    KnownNames names;
    names.members = roster_.current().members;
    names.files = matchingFiles;
    for (const auto& one : roster_.all()) {
        switch (one->address.kind) {
            case Kind::Console: break;
            case Kind::Friend: names.friends.push_back(one->address.id); break;
            case Kind::Group: names.groups.push_back(one->title); break;
            case Kind::Room: names.rooms.push_back(one->title); break;
        }
    }
    return names;
}

void Program::complete() {
    const auto completion = chat::complete(line_.text(), line_.cursor(), knownNames());
    const bool isStuck = completion.text == line_.text();
    line_.set(completion.text, completion.cursor);
    if (!isStuck || completion.choices.empty()) return;
    std::string choices;
    for (const auto& choice : completion.choices) choices += (choices.empty() ? "" : "  ") + choice;
    notice(choices);
}

void Program::take() {
    const std::string typed = narrow(line_.text());
    roster_.follow();
    if (typed.find_first_not_of(" \t\n") == std::string::npos) return line_.clear();
    const auto command = parseCommand(typed);
    if (!command) sender_.sendText(roster_.current().address, messageText(typed));
    line_.take();  // if it cannot be sent, the text stays in the line
    if (command) obey(*command);
}

void Program::obey(const Command& command) {
    if (command.isUnfinished) throw std::invalid_argument("a quotation mark has no end");
    if (places_.obey(command)) return;
    const auto& here = roster_.current().address;
    const std::map<std::string, std::function<void()>> commands = {
        {"send",
         [&] {
             if (command.words.empty()) throw std::invalid_argument("usage: /send FILE");
             sender_.sendFile(here, fileIn(command, 0));
         }},
        {"save", [&] { save(command); }},
        {"cancel",
         [&] {
             if (!sender_.cancelNewest() && !sender_.cancelWaiting(here))
                 notice("nothing is being transferred, and nothing waits here");
         }},
        {"retry",
         [&] {
             if (sender_.retry(here) == 0) notice("nothing has failed here");
         }},
        {"search",
         [&] {
             std::string words;
             for (const auto& word : command.words) words += (words.empty() ? "" : " ") + word;
             if (words.empty()) throw std::invalid_argument("usage: /search WORD …");
             session_->search(words);
         }},
        {"refresh", [&] { session_->refresh(); }},
        {"pause", [&] { session_->pause(); }},
        {"resume", [&] { session_->resume(); }},
        {"status", [&] { notice(session_->statusLine()); }},
        {"diagnose",
         [&] {
             std::string text =
                 "what has happened lately:\n" + session_->client().diagnose().text();
             noticeFromItsStart(text.substr(0, text.find_last_not_of('\n') + 1));
         }},
        {"help", [&] { noticeFromItsStart(helpText()); }},
        {"quit", [&] { leave(); }},
    };
    const auto found = commands.find(command.name);
    if (found == commands.end())
        throw std::invalid_argument("no such command: /" + command.name + "; /help lists them");
    found->second();
}

void Program::save(const Command& command) {
    const auto isNumber = [](const std::string& word) {
        return !word.empty() && word.size() <= 9 &&
               word.find_first_not_of("0123456789") == std::string::npos;
    };
    auto words = command.words;
    int number = 0;
    if (!words.empty() && isNumber(words.front())) {
        number = std::stoi(words.front());
        words.erase(words.begin());
    }
    const auto from = command.words.size() - words.size();
    sender_.save(roster_.current().address, number, words.empty() ? "" : fileIn(command, from));
}

}  // namespace chat
