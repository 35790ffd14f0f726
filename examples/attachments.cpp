// Sends a picture and a sound from Alice to Bob, and cancels a third transfer.

#include <VexIMLib/VexIMLib.h>

#include <cstdint>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <memory>
#include <optional>
#include <random>
#include <string>
#include <vector>

#include "Waiting.h"

namespace {

class Receiver final : public VXIMClientDelegate {
public:
    std::shared_ptr<VXIMMessage> last;
    void clientDidReceiveMessageFromFriend(const std::shared_ptr<VXIMClient>&,
                                           const std::shared_ptr<VXIMMessage>& message,
                                           const std::shared_ptr<VXIMFriendInfo>&) override {
        last = message;
    }
};

bool sendsPicture(const std::shared_ptr<VXIMClient>& alice) {
    std::vector<std::uint8_t> pixels(64 * 64 * 4, 200);
    return succeeds([&](const VXIMBooleanCompletion& done) {
        // [picture]
        // red, green, blue, alpha; rows from the top
        const auto image = vexim::Image::fromPixels(64, 64, pixels);
        alice->sendMessageToFriend(VXIMMessage::messageWithImage(*image), "bob", done);
        // [/picture]
    });
}

bool sendsSound(const std::shared_ptr<VXIMClient>& alice, const std::string& path) {
    return succeeds([&](const VXIMBooleanCompletion& done) {
        // [progress]
        // nullptr if the file does not exist
        auto message = VXIMMessage::messageWithAudioFileAtPath(path);
        message->receiver()->setUserId("bob");
        alice->sendMessage(
            message, [](std::int32_t percent) { std::cout << percent << " %\r"; },
            [message, done](bool sent, vexim::ErrorPtr error) {
                // A chat message succeeds even if its upload failed, so ask the message.
                done(sent && message->status() == VXIMMessageStatusSent,
                     error ? error : message->error());
            });
        // [/progress]
    });
}

bool downloads(const std::shared_ptr<VXIMMessage>& message, const std::string& path) {
    std::optional<bool> ended;
    // [download]
    message->downloadAttachment(path, {}, [&ended](vexim::Value file, vexim::ErrorPtr error) {
        ended = error == nullptr;
        // the path; the file appears when it is complete
        if (*ended) std::cout << "saved as " << file.description() << '\n';
    });
    // [/download]
    return becomesTrue([&] { return ended.has_value(); }) && *ended;
}

bool isCalledOff(const std::shared_ptr<VXIMMessage>& message, const std::string& path) {
    bool cancelled = false;
    const auto ended = [&cancelled](vexim::Value, vexim::ErrorPtr error) {
        cancelled = error && error->is(vexim::kURLErrorDomain, vexim::URLErrorCancelled);
    };
    // [cancel]
    auto transfer = VXIMTransfer::transfer();
    message->downloadAttachment(path, {}, ended, transfer);
    // on any thread; `ended` gets "NSURLErrorDomain" -999, and no file is left
    transfer->cancel();
    // [/cancel]
    return becomesTrue([&] { return cancelled; }) && !std::filesystem::exists(path);
}

}  // namespace

int main(int, char** arguments) {
    const auto folder = std::filesystem::temp_directory_path() /
                        ("attachments-" + std::to_string(std::random_device{}()));
    std::filesystem::create_directory(folder);
    const std::string sound = folder / "tone.wav", copy = folder / "copy.wav";
    std::ofstream(sound, std::ios::binary) << "RIFF" << std::string(100'000, '\x55');

    const auto alice = demoClient(arguments[1]), bob = demoClient(arguments[1]);
    const auto receiver = std::make_shared<Receiver>();
    bob->setDelegate(receiver);
    const auto arrives = [&](VXIMMessageMediaType type) {
        return becomesTrue([&] { return receiver->last && receiver->last->mediaType() == type; });
    };
    const bool done =
        succeeds([&](auto completion) { bob->loginWithUserId("bob", completion); }) &&
        succeeds([&](auto completion) { alice->loginWithUserId("alice", completion); }) &&
        sendsPicture(alice) && arrives(VXIMMessageMediaTypeImage) && sendsSound(alice, sound) &&
        arrives(VXIMMessageMediaTypeAudio) && downloads(receiver->last, copy) &&
        std::filesystem::file_size(copy) == std::filesystem::file_size(sound) &&
        isCalledOff(receiver->last, folder / "never.wav");
    std::filesystem::remove_all(folder);
    return done ? 0 : 1;
}
