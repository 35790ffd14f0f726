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
/// Every info keeps its own `online` current while it lives: it follows the presence notifications
/// of any client. Infos are independent of each other; two for one friend both follow. An
/// application may hold very many: each takes less than 400 bytes besides its texts and its
/// message, and an event finds those that it is about. Infos may be made and released on any
/// thread.
///
/// Errors of all operations: `VXErrorDomain` with the service's code where it refused, or
/// `VXErrorNoUsableAnswer` (100) where no usable answer came, with the cause beneath
/// ("NSURLErrorDomain"); `VXIMErrorDomain` with `VXIMErrorUnusableAnswer` (2) where the answer
/// makes no object. `vexim::isTemporary` tells which may pass.
class VEXIM_EXPORT VXIMFriendInfo final : public vexim::Object {
public:
    using Object::Object;
    ~VXIMFriendInfo() override;

    /// An info that knows the id only. nil raises NSInvalidArgumentException.
    static std::shared_ptr<VXIMFriendInfo> infoWithId(vexim::Value uid);
    /// An info from a record as the service sends it: "id", and what `setMetadataWithDictionary`
    /// takes.
    static std::shared_ptr<VXIMFriendInfo> infoWithDictionary(const vexim::Dictionary& dictionary);
    /// As `infoWithDictionary`. Never nullptr: without "id" the info has no uid and follows nobody.
    static std::shared_ptr<VXIMFriendInfo> initWithDictionary(const vexim::Dictionary& dictionary);

    /// Takes "online", "ts", "from", "to" and "recent" over. What is missing is cleared, but for
    /// the recent message, which then stays.
    void setMetadataWithDictionary(const vexim::Dictionary& dictionary);

    // What an info does at the notifications that it follows: changes `online`, when the user
    // information's "id" is its `uid`.
    void didOnline(const vexim::Notification& notification);
    void didOffline(const vexim::Notification& notification);

    /// The friend's user id as the service gave it.
    const vexim::Value& uid() const noexcept { return uid_; }
    /// Readable from any thread.
    bool online() const noexcept { return online_.load(std::memory_order_relaxed); }
    void setOnline(bool online) noexcept { online_.store(online, std::memory_order_relaxed); }
    /// The time of the friendship record as sent: milliseconds since 1970; 0 when unknown.
    std::int64_t ts() const noexcept { return ts_; }
    // Between which user ids the friendship was made; nil when unknown.
    const vexim::Value& from() const noexcept { return from_; }
    const vexim::Value& to() const noexcept { return to_; }

    /// nullptr when there is none.
    const std::shared_ptr<VXIMMessage>& recentMessage() const noexcept { return recentMessage_; }

    const vexim::Class& runtimeClass() const override;

    // For the factories.
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
    // last: it leaves before anything that an event reads
    vexim::detail::EmbeddedObserver presence_;
};
