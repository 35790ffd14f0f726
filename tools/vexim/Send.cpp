#include "Send.h"

#include <unistd.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <array>
#include <cctype>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <functional>
#include <stdexcept>
#include <system_error>
#include <utility>

#include "Echo.h"
#include "Explain.h"
#include "Login.h"
#include "VexIMLib/VexIMLib.h"

namespace {

// A transfer ends by limits of its own, and so does a login.
constexpr std::chrono::hours kForever{24};
// The service drops what goes to nobody without a word, and sends back what it delivers.
constexpr std::chrono::seconds kPatience{5};
constexpr std::chrono::seconds kLogoutTimeout{3};
// Far beyond what a service takes, so that an endless input ends.
constexpr std::size_t kLongestText = std::size_t{16} << 20;

constexpr std::array kAudio{".aac", ".amr", ".flac", ".m4a", ".mp3",
                            ".oga", ".ogg", ".opus", ".wav"};
constexpr std::array kPicture{".avif", ".bmp", ".gif", ".heic", ".jpeg", ".jpg",
                              ".png",  ".svg", ".tif", ".tiff", ".webp"};
constexpr std::array kVideo{".avi", ".m4v", ".mkv", ".mov", ".mp4", ".mpeg", ".mpg", ".webm"};

template <class Endings>
bool isOneOf(const std::string& ending, const Endings& endings) {
    return std::any_of(endings.begin(), endings.end(),
                       [&](const char* one) { return ending == one; });
}

std::string endingOf(const std::string& name) {
    std::string ending = std::filesystem::path(name).extension();
    std::transform(ending.begin(), ending.end(), ending.begin(),
                   [](unsigned char c) { return std::tolower(c); });
    return ending;
}

void drawProgress(std::int32_t percent) {
    constexpr int kWidth = 40;
    static std::int32_t drawn = -1;  // a value may come twice, and the end of the line must not
    if (std::exchange(drawn, percent) == percent) return;
    const int filled = std::clamp(percent, 0, 100) * kWidth / 100;
    std::fprintf(stderr, "\r[%s%s] %3d %%",
                 std::string(static_cast<std::size_t>(filled), '#').c_str(),
                 std::string(static_cast<std::size_t>(kWidth - filled), ' ').c_str(), percent);
    if (percent >= 100) std::fputc('\n', stderr);
}

bool waitFor(const std::function<bool()>& predicate, std::chrono::seconds limit) {
    return vexim::MainQueue::shared().runUntil(predicate, limit);
}

void logIn(const std::shared_ptr<VXIMClient>& client, const Credentials& credentials) {
    const auto answer = std::make_shared<std::optional<std::string>>();
    logInOnce(client, credentials, [answer](const std::string& complaint) { *answer = complaint; });
    waitFor([&] { return answer->has_value(); }, kForever);
    if (!answer->value_or("").empty()) throw std::runtime_error(**answer);
}

/// Returns once the connection has it; throws when it has not.
void handOver(VXIMClient& client, const std::shared_ptr<VXIMMessage>& message, Echo& echo) {
    const bool isFile = message->mediaType() != VXIMMessageMediaTypeText;
    const auto isOver = std::make_shared<bool>(false);
    const auto refusal = std::make_shared<vexim::ErrorPtr>();
    client.sendMessage(message, isFile ? drawProgress : VXIMProgress(),
                       [&echo, refusal, isOver](bool, vexim::ErrorPtr error) {
                           echo.expect();
                           *refusal = std::move(error);
                           *isOver = true;
                       });
    waitFor([&] { return *isOver; }, kForever);
    if (message->status() == VXIMMessageStatusSent) return;
    if (isFile) std::fputc('\n', stderr);  // the progress stands there, unfinished
    throw std::runtime_error("not sent: " + explain(*refusal ? *refusal : message->error()));
}

void awaitEcho(const Echo& echo, const Peer& peer) {
    waitFor([&] { return echo.hasCome() || echo.isLost(); }, kPatience);
    if (echo.hasCome()) return;
    if (echo.isLost()) {
        throw std::runtime_error(
            "the connection was lost before the service had sent the message back: it may have arrived, or not");
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

std::shared_ptr<VXIMMessage> messageFrom(const SendOptions& options) {
    if (options.file) return messageWithFile(*options.file);
    const bool isPiped = options.text ? *options.text == "-" : isatty(STDIN_FILENO) == 0;
    if (!options.text && !isPiped) throw std::invalid_argument("say what, or name a --file");
    const std::string text = isPiped ? readText() : *options.text;
    if (text.empty()) throw std::invalid_argument("the text is empty");
    if (vexim::writeJSON(vexim::Value(text), vexim::JSONFragments::Allow).error) {
        throw std::invalid_argument("the text is not valid UTF-8");
    }
    return VXIMMessage::messageWithText(text);
}

}  // namespace

std::shared_ptr<VXIMMessage> messageWithFile(const std::string& name) {
    std::error_code error;
    const auto status = std::filesystem::status(name, error);
    if (!std::filesystem::exists(status)) throw std::invalid_argument("no such file: " + name);
    if (std::filesystem::is_directory(status))
        throw std::invalid_argument("this is a folder, not a file: " + name);
    if (!std::filesystem::is_regular_file(status))
        throw std::invalid_argument("this is not a plain file: " + name);
    if (access(name.c_str(), R_OK) != 0)
        throw std::invalid_argument("this file cannot be read: " + name);
    const std::string ending = endingOf(name);
    if (isOneOf(ending, kAudio)) return VXIMMessage::messageWithAudioFileAtPath(name);
    if (isOneOf(ending, kVideo)) return VXIMMessage::messageWithVideoFileAtPath(name);
    return VXIMMessage::messageWithImageFileAtPath(name);
}

const char* mediaName(std::int32_t media, const std::string& name) {
    switch (media) {
        case VXIMMessageMediaTypeImage: return isOneOf(endingOf(name), kPicture) ? "image" : "file";
        case VXIMMessageMediaTypeAudio: return "audio";
        case VXIMMessageMediaTypeVideo: return "video";
        default: return "file";
    }
}

void SendOptions::addOptions(CLI::App& command) {
    auto* words = command.add_option(
        "TEXT", text, "The text; \"-\" or none: what standard input holds, as one message");
    command.add_option("--file", file, "A picture, a sound or a film to send instead")
        ->excludes(words);
    command.footer(
        "All of standard input is one text, without the line end that closes it; the text must be UTF-8.\n"
        "After a text that begins with a dash put the options in front, and \"--\" before the text.\n"
        "The status is 0 when the service has delivered the message: it has sent it back. 1: it has not, and\n"
        "standard error says why. 2: nothing was tried, as the command cannot be carried out.");
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

int runSend(const Account& account, const Credentials& credentials, const Peer& peer,
            const SendOptions& options) {
    if (!peer.isNamed())
        throw std::invalid_argument("say to whom with --friend, --group or --room");
    // a wrong address is told before a text is waited for
    const auto client = account.makeClient();
    const auto message = messageFrom(options);
    logIn(client, credentials);
    address(*message, peer);
    const auto echo = std::make_shared<Echo>(message, peer);
    client->setDelegate(echo);
    handOver(*client, message, *echo);
    awaitEcho(*echo, peer);
    const auto isOut = std::make_shared<bool>(false);
    client->logoutWithCompletion([isOut](bool, const vexim::ErrorPtr&) { *isOut = true; });
    waitFor([&] { return *isOut; }, kLogoutTimeout);  // whatever comes: the message has arrived
    return 0;
}
