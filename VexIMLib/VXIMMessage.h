#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "VexIMLib/Foundation/Dictionary.h"
#include "VexIMLib/Foundation/Error.h"
#include "VexIMLib/Foundation/Export.h"
#include "VexIMLib/Foundation/Image.h"
#include "VexIMLib/Foundation/KeyedArchiver.h"
#include "VexIMLib/Foundation/Object.h"
#include "VexIMLib/Foundation/Value.h"
#include "VexIMLib/VXIMCompletions.h"
#include "VexIMLib/VXIMMessageTarget.h"
#include "VexIMLib/VXIMTransfer.h"

class VXIMMessage;

/// What the body is: the text itself, or the URL of an attachment.
enum VXIMMessageMediaType : std::int32_t {
    VXIMMessageMediaTypeText = 0,
    VXIMMessageMediaTypeImage = 1,
    VXIMMessageMediaTypeAudio = 2,
    VXIMMessageMediaTypeVideo = 3,
};

/// How far a send has come. It lives in memory only; 3 is never used.
enum VXIMMessageStatus : std::int32_t {
    VXIMMessageStatusNone = 0,
    VXIMMessageStatusSending = 1,
    VXIMMessageStatusSent = 2,
    VXIMMessageStatusFailed = 4,
};

/// On success (the messages in the service's order, nullptr), on failure (nullopt, the error).
using VXIMMessagesCompletion = std::function<void(
    std::optional<std::vector<std::shared_ptr<VXIMMessage>>> messages, vexim::ErrorPtr error)>;

/// A chat message, which is its own wire form: one payload dictionary that the typed properties
/// read and write.
///
///     auto message = VXIMMessage::messageWithText("hello");
///     client->sendMessageToFriend(message, "u2", [](bool sent, vexim::ErrorPtr error) { … });
///
/// The payload is the JSON object that travels:
///
///     {"content": {"media": 0, "body": "hello"},        body: the text, or the attachment's URL
///     for other media
///      "ts": 1450000000000,                             milliseconds since 1970
///      "from": {"id": "u1", "type": 1, "gid": "g1"},    added by the service; "speaker" alone in
///      its older form "to": {"id": "g1", "type": 1}}
///
/// Further keys are kept. Sender and receiver are parsed out of the payload when a message is made
/// from one, and written back by `dictionaryRepresentation`. Use a message from one thread at a
/// time. Sending it again before the first send has ended is allowed, but the two share one status,
/// error, send time and attachment URL, so these tell of the send that ended last.
class VEXIM_EXPORT VXIMMessage final : public vexim::Object {
public:
    using Object::Object;

    /// An empty message; its payload, with the current time, is made when it is first asked for.
    static std::shared_ptr<VXIMMessage> init();
    /// A message that keeps all of `payload`. Whatever stands in its fields, this does not fail:
    /// what is of another type than expected reads as absent.
    static std::shared_ptr<VXIMMessage> initWithPayloadDictionary(vexim::Dictionary payload);
    /// It has no send time until it is sent.
    static std::shared_ptr<VXIMMessage> messageWithText(std::string_view text);
    /// Stages the image as a PNG file in the temporary directory (the same image always in the same
    /// file), in a folder that only this user can enter, and makes a message of it; nullptr when
    /// the file cannot be made, or when that folder is somebody else's.
    static std::shared_ptr<VXIMMessage> messageWithImage(const vexim::Image& image);
    /// Does not look whether the file exists.
    static std::shared_ptr<VXIMMessage> messageWithImageFileAtPath(std::optional<std::string> path);
    /// nullptr when nothing exists at `path`.
    static std::shared_ptr<VXIMMessage> messageWithAudioFileAtPath(std::optional<std::string> path);
    /// nullptr when nothing exists at `path`.
    static std::shared_ptr<VXIMMessage> messageWithVideoFileAtPath(std::optional<std::string> path);

    /// How far its last send has come; a copy begins anew.
    VXIMMessageStatus status() const noexcept { return status_; }
    /// Any status but `VXIMMessageStatusFailed` forgets the error.
    void setStatus(VXIMMessageStatus status) noexcept;
    /// Why the last send failed, also where its completion is not told (an attachment's upload);
    /// nullptr unless it did.
    const vexim::ErrorPtr& error() const noexcept { return error_; }

    /// Never nullptr. Set the target's ids and type to address a message.
    const std::shared_ptr<VXIMMessageTarget>& sender() const;
    /// Never nullptr. A send that names a receiver sets it here, and here it stays: also after a
    /// failure, and for the next send.
    const std::shared_ptr<VXIMMessageTarget>& receiver() const;
    /// Whether the sender is the service itself.
    bool isSystemMessage() const;

    /// The message's one payload, to be read and written in place.
    vexim::Dictionary& payload();
    /// Replaces it as it stands (nullopt: a fresh one at the next read). Sender and receiver stay.
    void setPayload(std::optional<vexim::Dictionary> payload);

    /// Text when the payload says nothing; any number may stand here, as it may in what the service
    /// sends.
    VXIMMessageMediaType mediaType() const;
    void setMediaType(VXIMMessageMediaType mediaType);
    /// The body; nullopt when there is none (or it is no string).
    std::optional<std::string> text() const;
    /// nullopt removes the body.
    void setText(std::optional<std::string> text);
    /// The body of any message but a text.
    std::optional<std::string> attachmentUrl() const;
    /// nullopt changes nothing.
    void setAttachmentUrl(std::optional<std::string> url);
    /// Seconds since 1970, to the millisecond; 0 when not sent yet.
    double sendTimestamp() const;
    /// Truncates to whole milliseconds.
    void setSendTimestamp(double seconds);

    /// The local file that is uploaded before a message of another media type than text is sent.
    /// When it cannot be read by then, an empty form goes up in its place, and the service's
    /// refusal fails the send.
    const std::optional<std::string>& attachmentPath() const noexcept { return attachmentPath_; }
    void setAttachmentPath(std::optional<std::string> path) { attachmentPath_ = std::move(path); }

    /// Downloads the attachment to the file at `path`, which is the result. The file appears when
    /// it is whole; a failed download leaves none. (A process that ends before `completion` has run
    /// may leave what had come, under a name that ends in ".part".) `completion` runs once, on the
    /// main queue; without an attachment URL it gets "NSURLErrorDomain" -1000. When no file can be
    /// written there (the folder is missing or not writable, a directory stands at `path`, the disk
    /// is full), nothing is sent; that, and a disk that fills up later, gives `VXErrorDomain` 100
    /// with the file's error ("NSCocoaErrorDomain") beneath. With a `transfer` the download can be
    /// cancelled, and its bytes be heard of.
    void downloadAttachment(std::string path, VXIMProgress progress,
                            VXIMResultCompletion completion,
                            std::shared_ptr<VXIMTransfer> transfer = nullptr);

    /// The sender as it travels; nullopt unless it is a user, group or room. Raises when that
    /// kind's id is nil.
    std::optional<vexim::Dictionary> senderDictionary() const;
    /// The receiver as it travels; likewise.
    std::optional<vexim::Dictionary> receiverDictionary() const;
    /// Writes receiver and sender into the payload, as far as they are set, and returns a copy of
    /// it. Raises NSInvalidArgumentException when a user, group or room lacks its id.
    vexim::Dictionary dictionaryRepresentation();

    /// A message made from a copy of the payload; neither status nor `attachmentPath` is copied,
    /// nor a target that has not been written into the payload yet.
    std::shared_ptr<vexim::Object> copy() const override;

    // Secure coding: the payload is kept, as a copy keeps it. See Foundation/KeyedArchiver.h:
    //     vexim::Data kept = vexim::archivedData(*message);
    //     auto again = vexim::unarchivedObject<VXIMMessage>(kept);
    void encodeWithCoder(vexim::Coder& coder) const;
    static std::shared_ptr<VXIMMessage> initWithCoder(const vexim::Coder& coder);
    static bool supportsSecureCoding() noexcept { return true; }

    /// "<VXIMMessage: 0x…> {payload}", with the payload as `dictionaryRepresentation` would give
    /// it. Writes nothing: a message may be described anywhere, also one whose target has no id
    /// yet.
    std::string description() const override;
    const vexim::Class& runtimeClass() const override;
    static const vexim::Class& staticClass();

    bool initialise() { return true; }
    bool initialise(vexim::Dictionary payload);

private:
    friend class VXIMClient;
    /// The end of a send that came to nothing.
    void failWith(vexim::ErrorPtr error) noexcept;
    /// Raises where `dictionaryRepresentation` would.
    void requireIds() const;
    /// Uploads the file at `attachmentPath` and takes its URL over; succeeds at once when there is
    /// none.
    void uploadAttachmentWithProgress(VXIMProgress progress, VXIMBooleanCompletion completion,
                                      std::shared_ptr<VXIMTransfer> transfer);
    static std::shared_ptr<VXIMMessage> messageWithFile(VXIMMessageMediaType mediaType,
                                                        std::optional<std::string> path);
    const vexim::Dictionary& currentPayload() const;
    void setBody(std::optional<std::string> body);
    void configSender();
    void configReceiver();

    VXIMMessageStatus status_ = VXIMMessageStatusNone;
    vexim::ErrorPtr error_;
    // Made when first read.
    mutable std::shared_ptr<VXIMMessageTarget> sender_;
    mutable std::shared_ptr<VXIMMessageTarget> receiver_;
    mutable std::optional<vexim::Dictionary> payload_;
    std::optional<std::string> attachmentPath_;
};
