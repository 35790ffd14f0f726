#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>

#include "VexIMLib/Foundation/Dictionary.h"
#include "VexIMLib/Foundation/EmbeddedObserver.h"
#include "VexIMLib/Foundation/Error.h"
#include "VexIMLib/Foundation/Export.h"
#include "VexIMLib/Foundation/Object.h"
#include "VexIMLib/Foundation/Value.h"

class VXIMFriendInfo;
class VXIMMessage;

namespace vexim {
struct Notification;
}

/// On success (the friend, nullptr), on failure (nullptr, the error).
using VXIMFriendInfoCompletion =
    std::function<void(std::shared_ptr<VXIMFriendInfo> info, vexim::ErrorPtr error)>;

/// One entry of a user's friend list.
///
/// Every info updates its `online` by itself: it listens to the presence notifications of all
/// clients. Two infos for the same friend are both updated. An application may hold very many: each
/// takes less than 400 bytes besides its texts and its message, and a presence event looks only at
/// the infos of that friend. Infos may be made and released on any thread.
///
/// Errors of all operations: `VXErrorDomain` with the service's code if it refused, or with
/// `VXErrorNoUsableAnswer` (100) if no usable answer came; the underlying error
/// ("NSURLErrorDomain") is the cause. `VXIMErrorDomain` with `VXIMErrorUnusableAnswer` (2) if no
/// object can be made from the answer. `vexim::isTemporary` says whether trying again later may
/// help.
///
///     for (const auto& info : client->currentUser()->friends().value_or({}))
///         std::cout << info->uid().description() << (info->online() ? " is online\n" : "\n");
class VEXIM_EXPORT VXIMFriendInfo final : public vexim::Object {
public:
    using Object::Object;
    ~VXIMFriendInfo() override;

    /// Makes an info that knows its id only. nil raises NSInvalidArgumentException.
    static std::shared_ptr<VXIMFriendInfo> infoWithId(vexim::Value uid);
    /// Makes an info from a record of the service: "id", and the entries that
    /// `setMetadataWithDictionary` reads.
    static std::shared_ptr<VXIMFriendInfo> infoWithDictionary(const vexim::Dictionary& dictionary);
    /// Like `infoWithDictionary`. Never nullptr: without "id" the info has no uid and is never
    /// updated.
    static std::shared_ptr<VXIMFriendInfo> initWithDictionary(const vexim::Dictionary& dictionary);

    /// Reads "online", "ts", "from", "to" and "recent". A missing entry clears its property, except
    /// for the recent message, which stays.
    void setMetadataWithDictionary(const vexim::Dictionary& dictionary);

    // Handlers of the presence notifications. They set `online` if the user information's "id"
    // equals `uid`.
    void didOnline(const vexim::Notification& notification);
    void didOffline(const vexim::Notification& notification);

    /// The friend's user id as the service gave it.
    const vexim::Value& uid() const noexcept { return uid_; }
    /// Whether the friend has a live connection. Readable from any thread.
    bool online() const noexcept { return online_.load(std::memory_order_relaxed); }
    void setOnline(bool online) noexcept { online_.store(online, std::memory_order_relaxed); }
    /// The time of the friendship record, in milliseconds since 1970; 0 if not known.
    std::int64_t ts() const noexcept { return ts_; }
    // The ids of the two users of the friendship; nil if not known.
    const vexim::Value& from() const noexcept { return from_; }
    const vexim::Value& to() const noexcept { return to_; }

    /// The newest message with this friend; nullptr if there is none.
    const std::shared_ptr<VXIMMessage>& recentMessage() const noexcept { return recentMessage_; }

    /// The runtime record of the class.
    const vexim::Class& runtimeClass() const override;

    // The factories call these.
    bool initialise(const vexim::Dictionary& dictionary);
    bool initialise(vexim::Value uid);

private:
    bool isMeantBy(const vexim::Notification& notification) const;

    vexim::Value uid_;
    std::atomic<bool> online_{false};
    std::int64_t ts_ = 0;
    vexim::Value from_;
    vexim::Value to_;
    std::shared_ptr<VXIMMessage> recentMessage_;
    // last, so that it unregisters before anything that an event reads is gone
    vexim::detail::EmbeddedObserver presence_;
};
