#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <system_error>
#include <vector>

#include "Demo.h"
#include "Stage.h"

namespace {

/// A temporary folder. It is removed with this object.
class TemporaryFolder {
public:
    TemporaryFolder()
        : path_((std::filesystem::temp_directory_path() / "vexim-demo-XXXXXX").string()) {
        if (mkdtemp(path_.data()) == nullptr)
            throw std::filesystem::filesystem_error(
                "mkdtemp", path_, std::error_code(errno, std::generic_category()));
    }
    ~TemporaryFolder() {
        std::error_code ignored;
        std::filesystem::remove_all(path_, ignored);
    }
    TemporaryFolder(const TemporaryFolder&) = delete;
    TemporaryFolder& operator=(const TemporaryFolder&) = delete;

    std::string file(const char* name) const { return path_ + "/" + name; }

private:
    std::string path_;
};

std::string contents(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

/// A small gradient.
vexim::Image picture() {
    constexpr std::uint32_t kSide = 64;
    std::vector<std::uint8_t> pixels;
    for (std::uint32_t y = 0; y < kSide; ++y) {
        for (std::uint32_t x = 0; x < kSide; ++x) {
            pixels.insert(pixels.end(), {static_cast<std::uint8_t>(4 * x),
                                         static_cast<std::uint8_t>(4 * y), 128, 255});
        }
    }
    return *vexim::Image::fromPixels(kSide, kSide, std::move(pixels));
}

/// What the recipient of an attachment sees: the last message of this kind.
class LastMessage {
public:
    LastMessage(const VXIMClient& client, VXIMMessageMediaType type) {
        vexim::NotificationCenter::defaultCenter().addObserver(
            seen_, VXIMClientDidReceiveMessageNotification, &client,
            [seen = seen_.get(), type](const vexim::Notification& notification) {
                auto message = notification.userInfo.value_or(vexim::Dictionary())
                                   .get("msg")
                                   .as<VXIMMessage>();
                if (message && message->mediaType() == type) *seen = message;
            });
    }
    const std::shared_ptr<VXIMMessage>& get() const { return *seen_; }

private:
    std::shared_ptr<std::shared_ptr<VXIMMessage>> seen_ =
        std::make_shared<std::shared_ptr<VXIMMessage>>();
};

/// alice sends `message`, bob receives and downloads it, and its bytes must be those of the file at
/// `original`.
void passOn(Stage& stage, const std::string& what, const std::shared_ptr<VXIMMessage>& message,
            const std::string& original, const std::string& copy) {
    LastMessage received(*stage.bob, message->mediaType());
    std::int32_t percent = 0;
    message->receiver()->setUserId(Stage::kBob);
    const auto sent = Stage::flag([&](auto done) {
        stage.alice->sendMessage(
            message, [&percent](std::int32_t now) { percent = now; }, done);
    });
    stage.succeeds("alice sends " + what, sent);
    stage.expectNow("its upload was followed to the end", percent == 100,
                    std::to_string(percent) + " %");
    const auto arrived = [&] { return received.get() != nullptr; };
    if (!stage.transcript.expect("bob receives it", arrived, arrived,
                                 [&] { return stage.bobHears->text(); }))
        return;
    const auto downloaded =
        Stage::result([&](auto done) { received.get()->downloadAttachment(copy, {}, done); });
    if (!stage.succeeds("bob downloads it", downloaded)) return;
    stage.expectNow("byte for byte the same", contents(copy) == contents(original),
                    std::to_string(contents(copy).size()) + " bytes");
}

}  // namespace

bool tellAttachments(Stage& stage) {
    stage.transcript.say("Sending pictures and sound");
    const TemporaryFolder folder;

    const auto image = VXIMMessage::messageWithImage(picture());
    stage.expectNow("a picture becomes a message", image != nullptr, "none");
    if (image)
        passOn(stage, "the picture", image, image->attachmentPath().value_or(""),
               folder.file("picture.png"));

    const auto sound = folder.file("sound.wav");
    std::ofstream(sound, std::ios::binary) << "RIFF" << std::string(100'000, '\x55');
    const auto audio = VXIMMessage::messageWithAudioFileAtPath(sound);
    stage.expectNow("a sound becomes a message", audio != nullptr, "none");
    if (audio) passOn(stage, "the sound", audio, sound, folder.file("copy.wav"));
    return true;
}
