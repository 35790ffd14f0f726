#include "Send.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <array>
#include <cctype>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <stdexcept>
#include <utility>

#include "Explain.h"
#include "VexIMLib/VexIMLib.h"

namespace {

using namespace std::chrono_literals;

constexpr std::array kAudio{".aac", ".amr", ".flac", ".m4a", ".mp3", ".oga", ".ogg", ".opus", ".wav"};
constexpr std::array kPicture{".avif", ".bmp", ".gif", ".heic", ".jpeg", ".jpg", ".png", ".svg", ".tif", ".tiff", ".webp"};
constexpr std::array kVideo{".avi", ".m4v", ".mkv", ".mov", ".mp4", ".mpeg", ".mpg", ".webm"};

template <class Endings>
bool isOneOf(const std::string& ending, const Endings& endings) {
    return std::any_of(endings.begin(), endings.end(), [&](const char* one) { return ending == one; });
}

std::string endingOf(const std::string& name) {
    std::string ending = std::filesystem::path(name).extension();
    std::transform(ending.begin(), ending.end(), ending.begin(), [](unsigned char c) { return std::tolower(c); });
    return ending;
}

void drawProgress(std::int32_t percent) {
    constexpr int kWidth = 40;
    static std::int32_t drawn = -1;  // a value may come twice, and the end of the line must not
    if (std::exchange(drawn, percent) == percent) return;
    const int filled = std::clamp(percent, 0, 100) * kWidth / 100;
    std::fprintf(stderr, "\r[%s%s] %3d %%", std::string(static_cast<std::size_t>(filled), '#').c_str(),
                 std::string(static_cast<std::size_t>(kWidth - filled), ' ').c_str(), percent);
    if (percent >= 100) std::fputc('\n', stderr);
}

/// A chat message's completion does not tell why its upload failed; the client's report does.
std::string whyUploadFailed(const VXIMClient& client) {
    const auto events = client.diagnose().events();
    const auto last =
        std::find_if(events.rbegin(), events.rend(), [](const auto& event) { return event.name == "request failed"; });
    return last == events.rend() ? "" : ": " + last->description();
}

/// How an operation ended; `complaint` is a connection's trouble meanwhile.
struct Outcome {
    bool arrived = false;
    bool succeeded = false;
    vexim::ErrorPtr error;
    std::string complaint;
};

/// Runs the main queue until an operation has ended; throws when it failed, when nothing comes, or when the connection
/// complains: a login over a dead connection never answers.
void await(const std::string& what, std::chrono::seconds limit, const std::function<void(VXIMBooleanCompletion)>& operation) {
    auto outcome = std::make_shared<Outcome>();
    vexim::NotificationCenter::defaultCenter().addObserver(
        outcome, VXIMClientConnectionErrorNotification, nullptr, [seen = outcome.get()](const vexim::Notification& notification) {
            seen->complaint = notification.userInfo.value_or(vexim::Dictionary()).get("data").get(0).description();
        });
    operation([outcome](bool succeeded, vexim::ErrorPtr error) {
        outcome->arrived = true;
        outcome->succeeded = succeeded;
        outcome->error = std::move(error);
    });
    vexim::MainQueue::shared().runUntil([&] { return outcome->arrived || !outcome->complaint.empty(); }, limit);
    if (outcome->succeeded) return;
    if (outcome->arrived) throw std::runtime_error(what + ": " + explain(outcome->error));
    throw std::runtime_error(what + ": " + (outcome->complaint.empty() ? "no answer" : outcome->complaint));
}

}  // namespace

std::shared_ptr<VXIMMessage> messageWithFile(const std::string& name) {
    if (!std::filesystem::is_regular_file(name)) throw std::invalid_argument("no such file: " + name);
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
    auto* words = command.add_option("TEXT", text, "The text");
    command.add_option("--file", file, "A picture, a sound or a film to send instead")->excludes(words);
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

int runSend(const Account& account, const Credentials& credentials, const Peer& peer, const SendOptions& options) {
    if (!options.text && !options.file) throw std::invalid_argument("say what, or name a --file");
    if (!peer.isNamed()) throw std::invalid_argument("say to whom with --friend, --group or --room");
    const auto message = options.file ? messageWithFile(*options.file) : VXIMMessage::messageWithText(*options.text);
    const auto client = account.makeClient();
    await("login", 30s, [&](auto done) { credentials.logIn(*client, done); });
    address(*message, peer);
    await("send", 24h, [&](auto done) { client->sendMessage(message, options.file ? drawProgress : VXIMProgress(), done); });
    if (message->status() != VXIMMessageStatusSent) {
        std::fputc('\n', stderr);  // the progress stands there, unfinished
        throw std::runtime_error("the file could not be uploaded" + whyUploadFailed(*client));
    }
    await("logout", 30s, [&](auto done) { client->logoutWithCompletion(done); });
    return 0;
}
