#include <sys/signalfd.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <cstdio>

#include "PlainChat.h"
#include "StoreCommands.h"
#include "VexIMLib/Store/VXIMConversations.h"
#include "VexIMLib/VexIMLib.h"
#include "chat/Program.h"

namespace {

// The service silently drops a message to nobody, and sends back what it delivers.
constexpr std::chrono::seconds kEchoTimeout{5};
// How many messages of a conversation to read if there is no store. Scrolling up fetches the rest.
constexpr std::int32_t kMostRead = 50;

/// A descriptor that reports resizes of the terminal and requests to end, instead of signal
/// handlers. Threads that are started later do not get these signals.
int signalDescriptor() {
    sigset_t signals;
    sigemptyset(&signals);
    for (const int signal : {SIGWINCH, SIGTERM, SIGHUP, SIGINT}) sigaddset(&signals, signal);
    pthread_sigmask(SIG_BLOCK, &signals, nullptr);
    return signalfd(-1, &signals, SFD_NONBLOCK | SFD_CLOEXEC);
}

int runChat(const Given& given) {
    const auto& credentials = given.credentials;
    const auto store = given.find("--store");
    const bool isUTF8 = chat::useUTF8();
    VXIMConversationsOptions options{.path = store.value_or(":memory:"),
                                     .userId = credentials.userId.value_or("")};
    options.echoTimeout = kEchoTimeout;
    if (!store) options.mostCaughtUp = kMostRead;
    auto conversations =
        VXIMConversations::conversationsWithClient(given.account.makeClient(), std::move(options));
    const bool isTerminal = isatty(STDIN_FILENO) != 0 && isatty(STDOUT_FILENO) != 0;
    if (!isTerminal || given.isJSON) return runPlainChat(conversations, given);

    const int signals = signalDescriptor();
    auto screen = chat::Screen::open(isUTF8);
    if (!screen || signals < 0) {
        std::fputs("vexim: no full screen on this terminal (see TERM); going on line by line\n",
                   stderr);
        sigset_t none;
        sigemptyset(&none);
        pthread_sigmask(SIG_SETMASK, &none, nullptr);
        return runPlainChat(conversations, given);
    }
    vexim::setLogSink({});  // log lines would run through the screen

    std::string complaint;
    int status = 0;
    {
        chat::Program program(conversations, credentials, std::move(screen));
        status = program.run(given.peer, signals);
        complaint = program.complaint();
    }
    close(signals);
    if (!complaint.empty()) std::fprintf(stderr, "vexim: %s\n", complaint.c_str());
    return status;
}

}  // namespace

CommandSpec chatCommand() {
    auto options = peerOptions("Begin with");
    options.insert(options.begin(), storeOption());
    return {
        "chat",
        "Chat from this terminal",
        {},
        std::move(options),
        runChat,
        "On a terminal it takes the whole screen; otherwise, and with --json, it reads and prints lines.\n"
        "NO_COLOR turns colours off. --store keeps the messages: those that could not be sent are sent in the\n"
        "next run, and those that were missed are fetched.\n\n" +
            chat::helpText()};
}
