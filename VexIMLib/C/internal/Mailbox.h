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

namespace vexim::c {

enum class Outcome { Answer, Error };

/// What one client has to say, until somebody receives it; and its open requests, each of which is
/// answered once. Any thread.
///
/// All of it together is bounded: beyond the limit events are dropped and new requests refused,
/// beyond four times the limit answers are dropped, too.
class Mailbox : public std::enable_shared_from_this<Mailbox> {
public:
    /// Names a request; never 0.
    using RequestId = std::uint64_t;
    using Transfers = std::vector<std::shared_ptr<VXIMTransfer>>;

    explicit Mailbox(std::size_t limit) noexcept : limit_(limit) {}
    ~Mailbox();
    Mailbox(const Mailbox&) = delete;
    Mailbox& operator=(const Mailbox&) = delete;

    std::size_t limit() const noexcept { return limit_; }

    // Requests. `extra` and `body` are JSON texts.

    /// Takes a request of `bytes` into the books; nullopt, and refused or ignored, when too much
    /// waits or the box is closed.
    std::optional<RequestId> open(std::string extra, std::size_t bytes);
    bool isOpen(RequestId id) const;
    /// Answers it, unless that has been done.
    void answer(RequestId id, Outcome outcome, std::string_view body);
    /// The request's `extra`; nullopt when it has been answered.
    std::optional<std::string> extraOf(RequestId id) const;
    /// What is to be cancelled along with the request; false when it has been answered already.
    bool attach(RequestId id, std::shared_ptr<VXIMTransfer> transfer);
    /// The request is overdue at that time. True when no other one is due as early.
    bool setDeadline(RequestId id, Clock::TimePoint deadline);
    std::optional<Clock::TimePoint> nextDeadline() const;

    // These give what is to be cancelled: by the caller, so that no lock is held meanwhile.

    /// Answers what is overdue.
    Transfers expire(Clock::TimePoint now, std::string_view error);
    /// Answers the open requests with this `extra` but `except`, and counts them.
    Transfers cancel(std::string_view extra, RequestId except, std::string_view error,
                     std::size_t& count);
    /// Answers all that is open, drops the events, and takes nothing any more.
    Transfers close(std::string_view error);

    // What waits to be received.

    /// False when it was dropped.
    bool event(std::string text);
    /// The next text into `text`, waiting for it until `seconds` are over; false when there is
    /// none. Takes the memory that `text` had.
    bool receive(double seconds, std::string& text);
    /// A text to write an event into, with the memory of one that has been received: what one
    /// thread allocates and another frees costs both.
    std::string blank();
    /// How many bytes wait, and are kept for open requests.
    std::size_t size() const;
    /// Whether nothing will ever come any more.
    bool isSpent() const;
    /// Polls readable while something waits. Made at the first call; nullopt when there is none to
    /// be had.
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
    static constexpr std::size_t kItemBytes = 128;  // beside the text, about
    static constexpr std::size_t kRequestBytes = 512;
    static constexpr std::size_t kMostBlanks = 128;
    static constexpr std::size_t kLargestBlank = 2048;

    void push(Item item) VEXIM_REQUIRES(mutex_);
    /// Wakes who waits. On the main thread only after what it is doing: messages come in batches,
    /// and to change threads for each one costs more than the message.
    void wake() VEXIM_REQUIRES(mutex_);
    void wakeNow() VEXIM_REQUIRES(mutex_);
    void pushAnswer(std::string_view extra, Outcome outcome, std::string_view body)
        VEXIM_REQUIRES(mutex_);
    void drop(Item::Kind kind) VEXIM_REQUIRES(mutex_);
    /// Answers it and takes it out of the books.
    Requests::iterator end(Requests::iterator request, Outcome outcome, std::string_view body,
                           Transfers& transfers) VEXIM_REQUIRES(mutex_);
    void untell() VEXIM_REQUIRES(mutex_);

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
    int reading_ VEXIM_GUARDED_BY(mutex_) = -1;
    int writing_ VEXIM_GUARDED_BY(mutex_) = -1;
    bool told_ VEXIM_GUARDED_BY(mutex_) = false;    // there is a byte in the pipe
    bool waking_ VEXIM_GUARDED_BY(mutex_) = false;  // it has been queued
};

}  // namespace vexim::c
