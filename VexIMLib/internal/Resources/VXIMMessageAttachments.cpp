// Files of messages: the factories for images, audio and video, the upload before a send, the
// download.

#include <utility>

#include "VexIMLib/Foundation/Error.h"
#include "VexIMLib/Foundation/Log.h"
#include "VexIMLib/Foundation/MainQueue.h"
#include "VexIMLib/Foundation/URL.h"
#include "VexIMLib/VXIMClientConfiguration.h"
#include "VexIMLib/VXIMMessage.h"
#include "VexIMLib/internal/Foundation/Text/Origin.h"
#include "VexIMLib/internal/Networking/VXIMHTTPRequest.h"
#include "VexIMLib/internal/Networking/VXIMRequest.h"
#include "VexIMLib/internal/Networking/VXIMUtils.h"
#include "VexIMLib/internal/Platform/Files/FileManager.h"
#include "VexIMLib/internal/Platform/Files/PNG.h"
#include "VexIMLib/internal/Resources/ResourceOperations.h"

namespace {

bool isOfTheService(const vexim::URL& url) {
    const auto configuration = vxim_configuration.get();
    const auto service = configuration ? configuration->socketURL() : std::nullopt;
    return service && vexim::detail::haveSameOrigin(url, *service);
}

}  // namespace

std::shared_ptr<VXIMMessage> VXIMMessage::messageWithFile(VXIMMessageMediaType mediaType,
                                                          std::optional<std::string> path) {
    auto message = init();
    message->setMediaType(mediaType);
    message->setAttachmentPath(std::move(path));
    return message;
}

std::shared_ptr<VXIMMessage> VXIMMessage::messageWithImage(const vexim::Image& image) {
    const vexim::Data png = vexim::encodePNG(image);
    if (png.empty()) return nullptr;
    const std::string digest = VXIMUtils::md5FromData(png).value_or("");
    if (digest.empty()) return nullptr;

    const std::string directory = VXIMUtils::stagingDirectory();
    if (vexim::FileManager::ensurePrivateDirectory(directory)) return nullptr;

    // Named by its contents, so the same image always gets the same file, even from several
    // processes.
    const std::string path = vexim::appendPathComponent(directory, digest + ".png");
    vexim::FileManager::writeAtomically(png, path);
    return vexim::FileManager::fileExists(path) ? messageWithImageFileAtPath(path) : nullptr;
}

std::shared_ptr<VXIMMessage> VXIMMessage::messageWithImageFileAtPath(
    std::optional<std::string> path) {
    return messageWithFile(VXIMMessageMediaTypeImage, std::move(path));
}

std::shared_ptr<VXIMMessage> VXIMMessage::messageWithAudioFileAtPath(
    std::optional<std::string> path) {
    if (!path || !vexim::FileManager::fileExists(*path)) return nullptr;
    return messageWithFile(VXIMMessageMediaTypeAudio, std::move(path));
}

std::shared_ptr<VXIMMessage> VXIMMessage::messageWithVideoFileAtPath(
    std::optional<std::string> path) {
    if (!path || !vexim::FileManager::fileExists(*path)) return nullptr;
    return messageWithFile(VXIMMessageMediaTypeVideo, std::move(path));
}

void VXIMMessage::uploadAttachmentWithProgress(VXIMProgress progress,
                                               VXIMBooleanCompletion completion,
                                               std::shared_ptr<VXIMTransfer> transfer) {
    if (!attachmentPath_) {
        vexim::log(vexim::LogLevel::Info, "No attachment to upload");
        return vexim::resources::endAtOnce(std::move(completion), true, nullptr);
    }
    VXIMHTTPRequest::uploadFileAtPath(
        *attachmentPath_, std::move(progress),
        [self = sharedAs<VXIMMessage>(), completion = std::move(completion)](
            const vexim::Value& result, const vexim::ErrorPtr& error) {
            // the same key for audio and video
            self->setAttachmentUrl(result.get("imgUrl").asString());
            if (completion) completion(error == nullptr, error);
        },
        std::move(transfer));
}

void VXIMMessage::downloadAttachment(std::string path, VXIMProgress progress,
                                     VXIMResultCompletion completion,
                                     std::shared_ptr<VXIMTransfer> transfer) {
    const auto url = attachmentUrl();
    if (!url || url->empty()) {
        auto error = vexim::Error::withDescription(vexim::kURLErrorDomain, vexim::URLErrorBadURL,
                                                   "The message has no attachment.");
        vexim::MainQueue::shared().async(
            [completion = std::move(completion), error = std::move(error)] {
                if (completion) completion(nullptr, error);
            });
        return;
    }
    auto request = VXIMRequest::request();
    request->setPath(url);
    // The message's sender chose the URL, so sign only requests to the service itself.
    const auto composed = request->composeURLWithPath(url, nullptr);
    if (!composed || !isOfTheService(*composed)) request->setClientKey(std::nullopt);
    request->downloadToPath(std::move(path), std::move(progress), std::move(completion),
                            std::move(transfer));
}
