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

/// What kind of body the message has: a text, or the URL of an attachment.
enum VXIMMessageMediaType : std::int32_t {
    VXIMMessageMediaTypeText = 0,
    VXIMMessageMediaTypeImage = 1,
    VXIMMessageMediaTypeAudio = 2,
    VXIMMessageMediaTypeVideo = 3,
};
/// Whether a message of this type has an attachment: every type but Text, because a service may add
/// types. Messages with an attachment upload their file before they are sent.
inline bool VXIMMessageMediaTypeIsAttachment(VXIMMessageMediaType mediaType) noexcept {
    return mediaType != VXIMMessageMediaTypeText;
}

/// The state of a send. It is kept in memory only. 3 is never used.
enum VXIMMessageStatus : std::int32_t {
    VXIMMessageStatusNone = 0,
    VXIMMessageStatusSending = 1,
    VXIMMessageStatusSent = 2,
    VXIMMessageStatusFailed = 4,
};

/// On success (the messages in the service's order, nullptr), on failure (nullopt, the error).
using VXIMMessagesCompletion = std::function<void(
    std::optional<std::vector<std::shared_ptr<VXIMMessage>>> messages, vexim::ErrorPtr error)>;

/// A chat message. It holds the JSON payload that is sent; the typed properties read and write this
/// one dictionary.
///
///     auto message = VXIMMessage::messageWithText("hello");
///     client->sendMessageToFriend(message, "u2", [](bool sent, vexim::ErrorPtr error) { … });
///
/// The payload is the JSON object that is sent:
///
///     {"content": {"media": 0, "body": "hello"},        body: the text, or the attachment's URL
///      "ts": 1450000000000,                             milliseconds since 1970
///      "from": {"id": "u1", "type": 1, "gid": "g1"},    added by the service; older services
///                                                       send "speaker" instead
///      "to": {"id": "g1", "type": 1}}
///
/// Other keys are kept. Sender and receiver are read from the payload when a message is made from
/// one, and `dictionaryRepresentation` writes them back. Use a message from one thread at a time.
/// You may send it again before the first send has ended, but both sends then share one status,
/// error, send time and attachment URL, which describe the send that ended last.
class VEXIM_EXPORT VXIMMessage final : public vexim::Object {
public:
    using Object::Object;

    /// Makes an empty message. Its payload, with the current time, is made when it is first read.
    static std::shared_ptr<VXIMMessage> init();
    /// Makes a message that keeps all of `payload`. This never fails: a field of an unexpected type
    /// counts as missing.
    static std::shared_ptr<VXIMMessage> initWithPayloadDictionary(vexim::Dictionary payload);
    /// Makes a text message. It has no send time until it is sent.
    static std::shared_ptr<VXIMMessage> messageWithText(std::string_view text);
    /// Makes a message from an image, which it saves as a PNG file in the temporary directory, in a
    /// folder that only this user can enter. The same image always gets the same file. Returns
    /// nullptr if the file cannot be written, or if the folder belongs to another user.
    static std::shared_ptr<VXIMMessage> messageWithImage(const vexim::Image& image);
    /// Makes a message from an image file. Does not check whether the file exists.
    static std::shared_ptr<VXIMMessage> messageWithImageFileAtPath(std::optional<std::string> path);
    /// nullptr when nothing exists at `path`.
    static std::shared_ptr<VXIMMessage> messageWithAudioFileAtPath(std::optional<std::string> path);
    /// nullptr when nothing exists at `path`.
    static std::shared_ptr<VXIMMessage> messageWithVideoFileAtPath(std::optional<std::string> path);

    /// The state of its last send. A copy starts with None.
    VXIMMessageStatus status() const noexcept { return status_; }
    /// Any status except `VXIMMessageStatusFailed` clears the error.
    void setStatus(VXIMMessageStatus status) noexcept;
    /// Why the last send failed, even if its completion got no error (a failed upload of the
    /// attachment). nullptr if it did not fail.
    const vexim::ErrorPtr& error() const noexcept { return error_; }

    /// The sender, never nullptr. The service fills it in when it delivers the message.
    const std::shared_ptr<VXIMMessageTarget>& sender() const;
    /// The receiver, never nullptr. Set its id and type to address a message. A send that names a
    /// receiver sets it here, and it stays, also after a failure and for the next send.
    const std::shared_ptr<VXIMMessageTarget>& receiver() const;
    /// Whether the sender is the service itself.
    bool isSystemMessage() const;

    /// The message's payload. Read and write it in place.
    vexim::Dictionary& payload();
    /// Replaces the payload; nullopt gives a fresh one at the next read. Sender and receiver stay.
    void setPayload(std::optional<vexim::Dictionary> payload);

    /// The media type; Text if the payload has none. The service may send other numbers, so any
    /// number is possible.
    VXIMMessageMediaType mediaType() const;
    void setMediaType(VXIMMessageMediaType mediaType);
    /// The body; nullopt if there is none or it is not a string.
    std::optional<std::string> text() const;
    /// Sets the body; nullopt removes it.
    void setText(std::optional<std::string> text);
    /// The attachment's URL: the body of a message that is not a text. nullopt if there is none.
    std::optional<std::string> attachmentUrl() const;
    /// Sets the attachment's URL. nullopt changes nothing.
    void setAttachmentUrl(std::optional<std::string> url);
    /// When it was sent, in seconds since 1970 with milliseconds; 0 if it was not sent yet.
    double sendTimestamp() const;
    /// Truncates to whole milliseconds.
    void setSendTimestamp(double seconds);

    /// The local file of the attachment. It is uploaded before the message is sent, unless the
    /// message is a text. If the file cannot be read then, an empty form is uploaded, the service
    /// refuses it, and the send fails.
    const std::optional<std::string>& attachmentPath() const noexcept { return attachmentPath_; }
    void setAttachmentPath(std::optional<std::string> path) { attachmentPath_ = std::move(path); }

    /// Downloads the attachment to the file at `path`. The result is this path. The file appears
    /// only when it is complete; a failed download leaves none. (If the process ends before
    /// `completion` has run, a partial file whose name ends in ".part" may stay.) `completion` runs
    /// once, on the main queue. Without an attachment URL it gets "NSURLErrorDomain" -1000. If no
    /// file can be written there (the folder is missing or not writable, `path` is a directory, the
    /// disk is full), no request is sent, and it gets `VXErrorDomain` 100; the underlying error is
    /// the file's ("NSCocoaErrorDomain"). A disk that fills up later gives the same error. Other
    /// failures give `VXErrorDomain`: the service's code, or 100. A `transfer` can cancel the
    /// download ("NSURLErrorDomain" -999) and reports its bytes.
    void downloadAttachment(std::string path, VXIMProgress progress,
                            VXIMResultCompletion completion,
                            std::shared_ptr<VXIMTransfer> transfer = nullptr);

    /// The sender in its wire form; nullopt unless it is a user, group or room. Raises
    /// NSInvalidArgumentException if its id is nil.
    std::optional<vexim::Dictionary> senderDictionary() const;
    /// The receiver in its wire form, by the same rules.
    std::optional<vexim::Dictionary> receiverDictionary() const;
    /// Writes the receiver and the sender into the payload if they are set, and returns a copy of
    /// it. Raises NSInvalidArgumentException if a user, group or room has no id.
    vexim::Dictionary dictionaryRepresentation();

    /// A message made from a copy of the payload. The status, `attachmentPath`, and a sender or
    /// receiver that is not yet in the payload are not copied.
    std::shared_ptr<VXIMMessage> copy();
    std::shared_ptr<vexim::Object> copy() const override;

    // Secure coding. The archive holds what `copy` copies. See Foundation/KeyedArchiver.h:
    //     vexim::Data kept = vexim::archivedData(*message);
    //     auto again = vexim::unarchivedObject<VXIMMessage>(kept);
    void encodeWithCoder(vexim::Coder& coder) const;
    static std::shared_ptr<VXIMMessage> initWithCoder(const vexim::Coder& coder);
    static bool supportsSecureCoding() noexcept { return true; }

    /// "<VXIMMessage: 0x…> {payload}", with the payload that `dictionaryRepresentation` would
    /// return. It changes nothing and never raises, even if a target has no id yet.
    std::string description() const override;
    const vexim::Class& runtimeClass() const override;
    static const vexim::Class& staticClass();

    bool initialise() { return true; }
    bool initialise(vexim::Dictionary payload);

private:
    friend class VXIMClient;
    /// Ends a send that failed.
    void failWith(vexim::ErrorPtr error) noexcept;
    /// Raises if `dictionaryRepresentation` would.
    void requireIds() const;
    /// Uploads the file at `attachmentPath` and sets the attachment URL. Succeeds at once if there
    /// is no file.
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
    // made when first read
    mutable std::shared_ptr<VXIMMessageTarget> sender_;
    mutable std::shared_ptr<VXIMMessageTarget> receiver_;
    mutable std::optional<vexim::Dictionary> payload_;
    std::optional<std::string> attachmentPath_;
};
