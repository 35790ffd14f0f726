#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <vector>

#include "VexIMLib/Foundation/Clock.h"
#include "VexIMLib/VXIMTransfer.h"
#include "VexIMLib/internal/Foundation/Threads/ThreadSafety.h"
#include "VexIMLib/internal/Foundation/Threads/WakePipe.h"

namespace vexim::c {

enum class Outcome { Answer, Error };

/// A client's answers and events until they are received, and its open requests, each of which is
/// answered once. Call from any thread.
///
/// The total size is limited. Above the limit events are dropped and new requests refused; above
/// four times the limit answers are dropped, too.
///
/// It has more than 25 functions because requests, answers and events share one limit and one lock.
class Mailbox : public std::enable_shared_from_this<Mailbox> {
public:
    /// Identifies a request; never 0.
    using RequestId = std::uint64_t;
    using Transfers = std::vector<std::shared_ptr<VXIMTransfer>>;

    explicit Mailbox(std::size_t limit) noexcept : limit_(limit) {}
    Mailbox(const Mailbox&) = delete;
    Mailbox& operator=(const Mailbox&) = delete;

    std::size_t limit() const noexcept { return limit_; }

    // Requests. `extra` and `body` are JSON texts.

    /// Registers a request of `bytes`. Returns nullopt if too much is waiting, after answering with
    /// an error, and if the mailbox is closed.
    std::optional<RequestId> open(std::string extra, std::size_t bytes);
    bool isOpen(RequestId id) const;
    /// Answers it, unless it was answered before.
    void answer(RequestId id, Outcome outcome, std::string_view body);
    /// The request's `extra`; nullopt if it was answered.
    std::optional<std::string> extraOf(RequestId id) const;
    /// Sets what to cancel together with the request. False if it was answered before.
    bool attach(RequestId id, std::shared_ptr<VXIMTransfer> transfer);
    /// Sets the request's deadline. True if it is now the next one.
    bool setDeadline(RequestId id, Clock::TimePoint deadline);
    std::optional<Clock::TimePoint> nextDeadline() const;

    // These return the transfers that the caller must cancel, so that no lock is held meanwhile.

    /// Answers overdue requests.
    Transfers expire(Clock::TimePoint now, std::string_view error);
    /// Answers the open requests with this `extra`, except `except`, and adds their number to
    /// `count`.
    Transfers cancel(std::string_view extra, RequestId except, std::string_view error,
                     std::size_t& count);
    /// Answers all open requests, drops the events, and accepts nothing more.
    Transfers close(std::string_view error);

    // Receiving.

    /// False when it was dropped.
    bool event(std::string text);
    /// Puts the next text into `text`, waiting for up to `seconds`. False if there is none. Reuses
    /// the memory of `text`.
    bool receive(double seconds, std::string& text);
    /// An empty text for writing an event. It reuses the memory of a received one if it can,
    /// because allocating on one thread and freeing on another is expensive for both.
    std::string blank();
    /// The bytes that wait to be received or are kept for open requests.
    std::size_t size() const;
    /// Whether it is closed and everything has been received.
    bool isSpent() const;
    /// A descriptor that is readable while something waits. Made by the first call; nullopt if
    /// there are no descriptors left.
    std::optional<int> descriptor();

private:
    struct OpenRequest {
        std::string extra;
        std::size_t bytes;
        std::shared_ptr<VXIMTransfer> transfer;
        std::optional<Clock::TimePoint> deadline;
    };
    struct Item {
        enum class Kind { Event, Answer, Overflow };
        Kind kind;
        std::string text;
        std::uint64_t events = 0;  // dropped, for `Overflow`
        std::uint64_t answers = 0;
    };
    using Requests = std::unordered_map<RequestId, OpenRequest>;

    static std::size_t bytesOf(const Item& item) noexcept { return item.text.size() + kItemBytes; }
    static constexpr std::size_t kItemBytes = 128;  // besides the text, roughly
    static constexpr std::size_t kRequestBytes = 512;
    static constexpr std::size_t kMostBlanks = 128;
    static constexpr std::size_t kLargestBlank = 2048;

    void push(Item item) VEXIM_REQUIRES(mutex_);
    /// Wakes the receiver. On the main thread this happens after the current function: messages
    /// come in batches, and a thread switch for each one costs more than the message.
    void wake() VEXIM_REQUIRES(mutex_);
    void wakeNow() VEXIM_REQUIRES(mutex_);
    void pushAnswer(std::string_view extra, Outcome outcome, std::string_view body)
        VEXIM_REQUIRES(mutex_);
    void drop(Item::Kind kind) VEXIM_REQUIRES(mutex_);
    /// Answers it and removes it.
    Requests::iterator end(Requests::iterator request, Outcome outcome, std::string_view body,
                           Transfers& transfers) VEXIM_REQUIRES(mutex_);

    const std::size_t limit_;
    mutable Mutex mutex_;
    ConditionVariable changed_;
    Requests requests_ VEXIM_GUARDED_BY(mutex_);
    std::set<std::pair<Clock::TimePoint, RequestId>> deadlines_ VEXIM_GUARDED_BY(mutex_);
    RequestId lastId_ VEXIM_GUARDED_BY(mutex_) = 0;
    std::deque<Item> items_ VEXIM_GUARDED_BY(mutex_);
    std::vector<std::string> blanks_ VEXIM_GUARDED_BY(mutex_);
    std::size_t bytes_ VEXIM_GUARDED_BY(mutex_) = 0;
    int waiting_ VEXIM_GUARDED_BY(mutex_) = 0;
    bool closed_ VEXIM_GUARDED_BY(mutex_) = false;
    WakePipe pipe_ VEXIM_GUARDED_BY(mutex_);
    bool waking_ VEXIM_GUARDED_BY(mutex_) = false;  // a wake-up is queued
};

}  // namespace vexim::c
