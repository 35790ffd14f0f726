// VXIMRequest.cpp adds the headers and the signature; here are only paths and bodies.
#include "VexIMLib/internal/Networking/VXIMHTTPRequest.h"

#include <utility>

#include "VexIMLib/internal/Networking/VXIMAFStreamingMultipartFormData.h"
#include "VexIMLib/internal/Networking/VXIMRequest.h"
#include "VexIMLib/internal/Networking/VXIMUtils.h"
#include "VexIMLib/internal/Platform/Files/FileManager.h"
#include "VexIMLib/internal/Platform/Threads/OperationQueue.h"

namespace {

constexpr const char* kAttachment = "attachment";  // the upload's path, and its form field

void sendBody(const char* method, std::string path, vexim::Value body,
              VXIMResultCompletion completion) {
    auto request = VXIMRequest::request();
    request->setMethod(method);
    request->setBody(std::move(body));
    request->setPath(std::move(path));
    request->sendWithCompletion(std::move(completion));
}

/// Converts ["image", "thumbnail"] to a dictionary. A dictionary stays unchanged; anything else
/// becomes nil.
vexim::Value attachmentOfAnswer(const vexim::Value& answer) {
    if (const auto* urls = answer.asArray(); urls && !urls->empty()) {
        vexim::Dictionary attachment{{"imgUrl", urls->at(0)}};
        if (urls->size() >= 2) attachment.set("thumbnail", urls->at(1));
        return attachment;
    }
    return answer.isDictionary() ? answer : vexim::Value();
}

}  // namespace

void VXIMHTTPRequest::get(std::string path, std::optional<vexim::Dictionary> params,
                          VXIMResultCompletion completion) {
    auto request = VXIMRequest::request();
    request->setQueryParams(std::move(params));
    request->setPath(std::move(path));
    request->sendWithCompletion(std::move(completion));
}

void VXIMHTTPRequest::post(std::string path, vexim::Value body, VXIMResultCompletion completion) {
    sendBody("POST", std::move(path), std::move(body), std::move(completion));
}

void VXIMHTTPRequest::put(std::string path, vexim::Value body, VXIMResultCompletion completion) {
    sendBody("PUT", std::move(path), std::move(body), std::move(completion));
}

void VXIMHTTPRequest::deletePath(std::string path, vexim::Value body,
                                 VXIMResultCompletion completion) {
    sendBody("DELETE", std::move(path), std::move(body), std::move(completion));
}

void VXIMHTTPRequest::uploadFileAtPath(std::string path, VXIMProgress progress,
                                       VXIMResultCompletion completion,
                                       std::shared_ptr<VXIMTransfer> transfer) {
    auto request = VXIMRequest::request();
    request->setMethod("POST");
    request->setPath(kAttachment);
    request->addHTTPHeadersFromDictionary({{"Cache-Control", "no-cache"}});

    auto form =
        VXIMAFStreamingMultipartFormData::initWithURLRequest(request, vexim::StringEncoding::UTF8);
    // If the file cannot be read, the form stays empty, and the service's answer decides.
    form->appendPartWithFileURL(vexim::URL::fileURLWithPath(path), kAttachment, nullptr);
    auto finalized = form->requestByFinalizingMultipartFormData();

    finalized->uploadWithNewBodyStreamBlock(
        [finalized] { return finalized->bodyStream(); }, std::move(progress),
        [completion = std::move(completion)](const vexim::Value& result,
                                             const vexim::ErrorPtr& error) {
            if (completion) completion(attachmentOfAnswer(result), error);
        },
        std::move(transfer));
}

void VXIMHTTPRequest::uploadData(vexim::Data bytes, VXIMProgress progress,
                                 VXIMResultCompletion completion,
                                 std::shared_ptr<VXIMTransfer> transfer) {
    // the queue's thread ends after this one operation
    auto background = vexim::OperationQueue::create("vexim-staging");
    background->addOperation([bytes = std::move(bytes), progress = std::move(progress),
                              completion = std::move(completion), transfer = std::move(transfer)] {
        const auto path = vexim::appendPathComponent(VXIMUtils::stagingDirectory(),
                                                     *VXIMUtils::md5FromData(bytes));
        // If the directory is missing, this fails and an empty form is uploaded. The code that
        // stages attachments has made it.
        vexim::FileManager::writeAtomically(bytes, path);
        uploadFileAtPath(path, progress, completion, transfer);
    });
}
