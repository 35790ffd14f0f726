#include "Sender.h"

#include <algorithm>
#include <filesystem>
#include <stdexcept>
#include <system_error>

#include "../Attachment.h"
#include "../Explain.h"
#include "Files.h"
#include "Text.h"

namespace chat {
namespace {

bool isUnsent(const Entry& entry) {
    return entry.delivery == Delivery::Waiting || entry.delivery == Delivery::Sending;
}

std::optional<std::int64_t> sizeOf(const std::string& path) {
    std::error_code error;
    const auto size = std::filesystem::file_size(path, error);
    if (error) return std::nullopt;
    return static_cast<std::int64_t>(size);
}

}  // namespace

Entry* Sender::find(const Address& where, std::uint64_t id) {
    auto* conversation = roster_.find(where);
    return conversation ? conversation->find(id) : nullptr;
}

VXIMProgress Sender::showProgress(const Address& where, std::shared_ptr<const std::uint64_t> id,
                                  std::shared_ptr<Pace> pace) {
    return [this, where, id = std::move(id), pace = std::move(pace)](std::int32_t percent) {
        auto* entry = find(where, *id);
        pace->reachedPercent(percent, Session::now());
        if (!entry || !entry->file || (entry->isOwn && !isUnsent(*entry))) return;
        entry->file->percent = percent;
        entry->file->pace = pace->text();
    };
}

void Sender::forget(const Transfer& transfer) { std::erase(transfers_, transfer); }

void Sender::sendText(const Address& to, std::string text) {
    send(to, VXIMMessage::messageWithText(text), "");
}

void Sender::sendFile(const Address& to, const std::string& path) {
    const std::string expanded = expandedPath(path);
    send(to, messageWithFile(expanded), expanded);
}

void Sender::send(const Address& to, const std::shared_ptr<VXIMMessage>& message,
                  const std::string& path) {
    if (to.kind == Kind::Console) {
        throw std::invalid_argument(
            "to whom? Alt-1 … Alt-9, or /friend USER, /group GROUP, /room ROOM");
    }
    const auto id = std::make_shared<std::uint64_t>(0);
    session_.conversations().send(
        message, conversationOf(to),
        path.empty() ? VXIMProgress() : showProgress(to, id, std::make_shared<Pace>(sizeOf(path))),
        [this, to, id, path](const std::optional<VXIMStoredMessage>& stored,
                             const vexim::ErrorPtr& error) {
            if (!stored)
                return roster_.notice("not accepted: " + explain(error), Session::now(), true);
            *id = static_cast<std::uint64_t>(stored->localId);
            auto* entry = find(to, *id);
            if (!entry || !entry->file) return;
            entry->file->path = path;  // the store's copy has a different name
            if (isUnsent(*entry) && !entry->file->percent) entry->file->percent = 0;
        });
}

std::size_t Sender::retry(const Address& to) {
    std::vector<std::uint64_t> ids;
    for (const auto& entry : roster_.open(to).entries()) {
        const bool waits = entry.delivery == Delivery::Waiting && !entry.failure.empty();
        if (entry.delivery == Delivery::Failed || waits) ids.push_back(entry.id);
    }
    for (const auto id : ids)
        session_.conversations().retry(static_cast<std::int64_t>(id), nullptr);
    return ids.size();
}

void Sender::save(const Address& from, int number, const std::string& path) {
    auto* entry = roster_.open(from).findFile(number);
    if (!entry)
        throw std::invalid_argument(number == 0
                                        ? "there is no file here"
                                        : "there is no file " + std::to_string(number) + " here");
    if (entry->file->percent) throw std::invalid_argument("it is being fetched");
    const auto url = vexim::URL::parse(entry->text);
    if (!url || (url->scheme() != "http" && url->scheme() != "https"))
        throw std::invalid_argument("this is no file of the service's");
    const std::string place = placeFor(path, entry->file->name);

    const auto message = VXIMMessage::init();
    message->setMediaType(VXIMMessageMediaTypeImage);
    message->setAttachmentUrl(entry->text);
    const auto transfer = VXIMTransfer::transfer();
    transfers_.push_back(transfer);
    entry->file->percent = 0;
    const auto id = entry->id;
    // A download also reports bytes; its size is known once it has begun.
    const auto pace = std::make_shared<Pace>();
    transfer->setProgress([pace](VXIMTransferProgress progress) {
        pace->reached(progress.bytes, progress.total, Session::now());
    });
    message->downloadAttachment(
        place, showProgress(from, std::make_shared<const std::uint64_t>(id), pace),
        [this, from, id, place, transfer](const vexim::Value&, const vexim::ErrorPtr& error) {
            forget(transfer);
            auto* saved = find(from, id);
            if (saved && saved->file) saved->file->percent.reset();
            const bool wasCancelled =
                error && error->is(vexim::kURLErrorDomain, vexim::URLErrorCancelled);
            roster_.notice(wasCancelled ? "cancelled"
                           : error      ? "not saved: " + explain(error)
                                        : "saved as " + place,
                           Session::now(), error != nullptr);
        },
        transfer);
}

void Sender::takeBack(std::uint64_t id) {
    session_.conversations().cancel(
        static_cast<std::int64_t>(id), [this](bool cancelled, const vexim::ErrorPtr& error) {
            roster_.notice(cancelled ? "taken back" : "not taken back: " + explain(error),
                           Session::now(), !cancelled);
        });
}

bool Sender::cancelNewest() {
    if (!transfers_.empty()) {
        const auto newest = transfers_.back();  // its completion removes it from the list
        newest->cancel();
        return true;
    }
    const Entry* newest = nullptr;
    for (const auto& conversation : roster_.all()) {
        conversation->eachEntry([&](const Entry& entry) {
            const bool isSent = entry.isOwn && entry.file && isUnsent(entry);
            if (isSent && (!newest || entry.time > newest->time)) newest = &entry;
        });
    }
    if (newest) takeBack(newest->id);
    return newest != nullptr;
}

bool Sender::cancelWaiting(const Address& to) {
    const auto& entries = roster_.open(to).entries();
    const auto newest = std::find_if(entries.rbegin(), entries.rend(), [](const Entry& entry) {
        return entry.delivery == Delivery::Waiting || entry.delivery == Delivery::Failed;
    });
    if (newest == entries.rend()) return false;
    takeBack(newest->id);
    return true;
}

void Sender::cancelAll() {
    const auto all = transfers_;
    for (const auto& transfer : all) transfer->cancel();
}

}  // namespace chat
