#include "Sender.h"

#include <stdexcept>

#include "../Explain.h"
#include "../Send.h"
#include "Files.h"
#include "Text.h"

namespace chat {
namespace {

void address(VXIMMessage& message, const Address& to) {
    switch (to.kind) {
        case Kind::Console: break;
        case Kind::Friend: return message.receiver()->setUserId(to.id);
        case Kind::Group: return message.receiver()->setGroupId(to.id);
        case Kind::Room: return message.receiver()->setRoomId(to.id);
    }
    throw std::invalid_argument("to whom? Alt-1 … Alt-9, or /friend USER, /group GROUP, /room ROOM");
}

}  // namespace

Entry* Sender::find(const Address& where, std::uint64_t id) {
    auto* conversation = roster_.find(where);
    return conversation ? conversation->find(id) : nullptr;
}

VXIMProgress Sender::showProgress(const Address& where, std::uint64_t id) {
    return [this, where, id](std::int32_t percent) {
        auto* entry = find(where, id);
        if (entry && entry->file && entry->file->percent) entry->file->percent = percent;
    };
}

void Sender::forget(const Transfer& transfer) { std::erase(transfers_, transfer); }

void Sender::sendText(const Address& to, std::string text) {
    const auto message = VXIMMessage::messageWithText(text);
    Entry entry;
    entry.text = std::move(text);
    send(to, std::move(entry), message);
}

void Sender::sendFile(const Address& to, const std::string& path) {
    const std::string expanded = expandedPath(path);
    const auto message = messageWithFile(expanded);
    Entry entry;
    entry.file = File{mediaName(message->mediaType(), expanded), expanded, 0, 0};
    send(to, std::move(entry), message);
}

void Sender::send(const Address& to, Entry entry, const std::shared_ptr<VXIMMessage>& message) {
    address(*message, to);
    entry.isOwn = true;
    entry.sender = session_.me().empty() ? "me" : session_.me();
    entry.time = Session::now();
    entry.delivery = Delivery::Sending;
    const bool isFile = entry.file.has_value();
    const auto id = roster_.open(to).append(std::move(entry));
    const Transfer transfer = isFile ? VXIMTransfer::transfer() : nullptr;
    if (transfer) transfers_.push_back(transfer);
    session_.client().sendMessage(
        message, isFile ? showProgress(to, id) : VXIMProgress(),
        [this, to, id, message, transfer](bool, const vexim::ErrorPtr& error) {
            forget(transfer);
            didSend(to, id, *message, error);
        },
        transfer);
    // The time by which it will be known when it comes back.
    auto* sent = find(to, id);
    if (sent && message->sendTimestamp() > 0) sent->time = message->sendTimestamp();
}

void Sender::didSend(const Address& to, std::uint64_t id, VXIMMessage& message, const vexim::ErrorPtr& error) {
    auto* entry = find(to, id);
    if (!entry) return;
    if (entry->file) entry->file->percent.reset();
    if (error || message.status() == VXIMMessageStatusFailed) {
        const bool wasCancelled = error && error->is(vexim::kURLErrorDomain, vexim::URLErrorCancelled);
        entry->delivery = wasCancelled ? Delivery::Cancelled : Delivery::Failed;
        const bool wasApart = error && error->is(VXIMErrorDomain, 1) && !session_.state().isConnected();
        entry->failure = wasApart ? "not connected" : error ? explain(error) : "the file could not be uploaded";
        return;
    }
    entry->delivery = Delivery::Handed;
    entry->handed = Session::now();
    if (entry->file) entry->text = message.attachmentUrl().value_or("");
}

std::size_t Sender::retry(const Address& to) {
    std::vector<Entry> failed;
    auto& conversation = roster_.open(to);
    for (const auto& entry : conversation.entries()) {
        if (entry.delivery == Delivery::Failed) failed.push_back(entry);
    }
    for (const auto& entry : failed) {
        if (entry.file) {
            sendFile(to, entry.file->path);
        } else {
            sendText(to, entry.text);
        }
        conversation.remove(entry.id);  // now that another stands for it
    }
    return failed.size();
}

void Sender::save(const Address& from, int number, const std::string& path) {
    auto* entry = roster_.open(from).findFile(number);
    if (!entry)
        throw std::invalid_argument(number == 0 ? "there is no file here" : "there is no file " + std::to_string(number) + " here");
    if (entry->file->percent) throw std::invalid_argument("it is being fetched");
    const auto url = vexim::URL::parse(entry->text);
    if (!url || (url->scheme() != "http" && url->scheme() != "https"))
        throw std::invalid_argument("this is no file of the service's");
    const std::string place = placeFor(path, entry->text);

    const auto message = VXIMMessage::init();
    message->setMediaType(VXIMMessageMediaTypeImage);
    message->setAttachmentUrl(entry->text);
    const auto transfer = VXIMTransfer::transfer();
    transfers_.push_back(transfer);
    entry->file->percent = 0;
    const auto id = entry->id;
    message->downloadAttachment(
        place, showProgress(from, id),
        [this, from, id, place, transfer](const vexim::Value&, const vexim::ErrorPtr& error) {
            forget(transfer);
            auto* saved = find(from, id);
            if (saved && saved->file) saved->file->percent.reset();
            const bool wasCancelled = error && error->is(vexim::kURLErrorDomain, vexim::URLErrorCancelled);
            roster_.notice(wasCancelled ? "cancelled"
                           : error      ? "not saved: " + explain(error)
                                        : "saved as " + place,
                           Session::now(), error != nullptr);
        },
        transfer);
}

bool Sender::cancelNewest() {
    if (transfers_.empty()) return false;
    const auto newest = transfers_.back();  // its completion takes it out
    newest->cancel();
    return true;
}

void Sender::cancelAll() {
    const auto all = transfers_;
    for (const auto& transfer : all) transfer->cancel();
}

}  // namespace chat
