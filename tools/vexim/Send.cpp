#include "Send.h"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <functional>
#include <stdexcept>
#include <system_error>
#include <utility>

#include "Attachment.h"
#include "Echo.h"
#include "Explain.h"
#include "Login.h"
#include "Operation.h"
#include "VexIMLib/VexIMLib.h"
#include "chat/Pace.h"

namespace {

// Uploads and logins have time limits of their own.
constexpr std::chrono::hours kForever{24};
// The service silently drops a message to nobody, and sends back what it delivers.
constexpr std::chrono::seconds kPatience{5};
constexpr std::chrono::seconds kLogoutTimeout{3};
// Much more than a service accepts. It only stops an endless input.
constexpr std::size_t kLongestText = std::size_t{16} << 20;

/// A progress line on standard error: percentage, speed, remaining time.
VXIMProgress progressLine(const std::string& file) {
    std::error_code ignored;
    const auto size = std::filesystem::file_size(file, ignored);
    const auto pace = std::make_shared<chat::Pace>(static_cast<std::int64_t>(ignored ? 0 : size));
    // A percentage may come twice, but the line must end only once.
    return [pace, drawn = -1](std::int32_t percent) mutable {
        constexpr int kWidth = 40;
        if (std::exchange(drawn, percent) == percent) return;
        pace->reachedPercent(percent, vexim::Clock::shared()->wallTime());
        const int filled = std::clamp(percent, 0, 100) * kWidth / 100;
        std::fprintf(stderr, "\r[%s%s] %3d %%  %-24s",
                     std::string(static_cast<std::size_t>(filled), '#').c_str(),
                     std::string(static_cast<std::size_t>(kWidth - filled), ' ').c_str(), percent,
                     pace->text().c_str());
        if (percent >= 100) std::fputc('\n', stderr);
    };
}

bool waitFor(const std::function<bool()>& predicate, std::chrono::seconds limit) {
    return vexim::MainQueue::shared().runUntil(predicate, limit);
}

/// Returns once the connection has accepted the message; throws if it refuses.
void handOver(VXIMClient& client, const std::shared_ptr<VXIMMessage>& message, Echo& echo) {
    const bool isFile = VXIMMessageMediaTypeIsAttachment(message->mediaType());
    const auto isOver = std::make_shared<bool>(false);
    const auto refusal = std::make_shared<vexim::ErrorPtr>();
    client.sendMessage(
        message, isFile ? progressLine(message->attachmentPath().value_or("")) : VXIMProgress(),
        [&echo, refusal, isOver](bool, vexim::ErrorPtr error) {
            echo.expect();
            *refusal = std::move(error);
            *isOver = true;
        });
    waitFor([&] { return *isOver; }, kForever);
    if (message->status() == VXIMMessageStatusSent) return;
    if (isFile) std::fputc('\n', stderr);  // end the unfinished progress line
    throw std::runtime_error("not sent: " + explain(*refusal ? *refusal : message->error()));
}

void awaitEcho(const Echo& echo, const Peer& peer) {
    waitFor([&] { return echo.hasCome() || echo.isLost(); }, kPatience);
    if (echo.hasCome()) return;
    if (echo.isLost()) {
        throw std::runtime_error(
            "the connection was lost before the service confirmed the message: it may or may not have arrived");
    }
    const std::string doubt = peer.friendId ? "Is \"" + *peer.friendId + "\" a friend of yours?"
                              : peer.groupId
                                  ? "Are you a member of a group \"" + *peer.groupId + "\"?"
                                  : "Are you a member of a room \"" + *peer.roomId + "\"?";
    throw std::runtime_error(
        "not delivered: the service has not sent the message back, as it does with those that it delivers. " +
        doubt);
}

std::string readText() {
    std::string text;
    std::array<char, 65'536> bytes{};
    while (const auto count = std::fread(bytes.data(), 1, bytes.size(), stdin)) {
        text.append(bytes.data(), count);
        if (text.size() > kLongestText)
            throw std::invalid_argument("the text is longer than 16 MiB");
    }
    if (std::ferror(stdin) != 0)
        throw std::runtime_error(std::string("cannot read the text: ") + std::strerror(errno));
    if (text.ends_with('\n')) text.pop_back();
    return text;
}

std::shared_ptr<VXIMMessage> messageFrom(const Given& given) {
    if (const auto file = given.find("--file")) {
        if (given.has("TEXT")) {
            const std::string both = *file + " " + given.text("TEXT");
            std::error_code ignored;
            throw std::invalid_argument(std::filesystem::exists(both, ignored)
                                            ? "the file's name needs quotes: --file \"" + both + '"'
                                            : "send either a text or a --file, not both");
        }
        return messageWithFile(*file);
    }
    const bool hasText = given.has("TEXT");
    const bool isPiped = hasText ? given.text("TEXT") == "-" : isatty(STDIN_FILENO) == 0;
    if (!hasText && !isPiped) throw std::invalid_argument("no text: write one, or name a --file");
    const std::string text = isPiped ? readText() : given.text("TEXT");
    if (text.empty()) throw std::invalid_argument("the text is empty");
    if (vexim::writeJSON(vexim::Value(text), vexim::JSONFragments::Allow).error) {
        throw std::invalid_argument("the text is not valid UTF-8");
    }
    return VXIMMessage::messageWithText(text);
}

void address(VXIMMessage& message, const Peer& peer) {
    auto& receiver = *message.receiver();
    if (peer.friendId) {
        receiver.setUserId(*peer.friendId);
    } else if (peer.groupId) {
        receiver.setGroupId(*peer.groupId);
    } else if (peer.roomId) {
        receiver.setRoomId(*peer.roomId);
    }
}

int runSend(const Given& given) {
    const auto& peer = given.peer;
    if (!peer.isNamed())
        throw std::invalid_argument("say to whom with --friend, --group or --room");
    // Make the client first: a wrong address should be reported before the program waits for a
    // text.
    const auto client = given.account.makeClient();
    const auto message = messageFrom(given);
    logIn(client, given.credentials);
    address(*message, peer);
    const auto echo = std::make_shared<Echo>(message, peer);
    client->setDelegate(echo);
    handOver(*client, message, *echo);
    awaitEcho(*echo, peer);
    const auto isOut = std::make_shared<bool>(false);
    client->logoutWithCompletion([isOut](bool, const vexim::ErrorPtr&) { *isOut = true; });
    // whatever the result, the message has arrived
    waitFor([&] { return *isOut; }, kLogoutTimeout);
    if (given.isJSON) printJSON(message->dictionaryRepresentation());
    return 0;
}

}  // namespace

CommandSpec sendCommand() {
    auto options = peerOptions("Send to");
    options.push_back({"--file", "FILE", "A file to send instead of a text"});
    return {
        "send",
        "Send one message",
        {{"TEXT", "The text; \"-\" or none: all of standard input, as one message", Count::Any}},
        std::move(options),
        runSend,
        "All of standard input is one text, without the last line end; it must be UTF-8.\n"
        "Put a text that begins with a dash last, after \"--\".\n"
        "The status is 0 if the service has delivered the message: it has sent it back."};
}
