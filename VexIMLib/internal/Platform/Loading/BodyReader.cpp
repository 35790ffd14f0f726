#include "VexIMLib/internal/Platform/Loading/BodyReader.h"

#include <algorithm>
#include <cstring>
#include <deque>
#include <utility>
#include <vector>

#include "VexIMLib/Foundation/MainQueue.h"
#include "VexIMLib/internal/Foundation/Threads/ThreadSafety.h"
#include "VexIMLib/internal/Platform/Facts/URLErrors.h"
#include "VexIMLib/internal/Platform/Threads/NetworkThread.h"

namespace vexim {
namespace {

// All chunks fit in a core's cache, with the copies that libcurl and the system make. Longer chunks
// mean fewer switches between the reader and the network thread.
constexpr std::size_t kChunkBytes = 128 * 1024;
constexpr std::size_t kMostChunks = 4;

struct Chunk {
    std::unique_ptr<std::uint8_t[]> bytes;
    std::size_t count = 0;
    std::size_t taken = 0;
};

}  // namespace

struct BodyReader::Shared final : ReaderPool::Work,
                                  std::enable_shared_from_this<BodyReader::Shared> {
    /// Who acts next.
    enum class Phase {
        Parked,      // the network thread: it has enough for now, or reads itself
        Queued,      // a thread of the pool, which may already be reading
        AwaitsMain,  // the main thread
        Paused,      // the timer
        Ended,
    };

    Shared(std::shared_ptr<InputStream> body, std::optional<std::uint64_t> announced,
           std::function<void()> call, ReaderPool& threads)
        : stream(std::move(body)),
          length(announced),
          pool(threads),
          ready(std::move(call)) {}

    const std::shared_ptr<InputStream> stream;
    const std::optional<std::uint64_t> length;
    ReaderPool& pool;

    // The stream and its position belong to the reader, or to the network thread while `lent`.
    bool opened = false;
    Chunk current;
    std::uint64_t position = 0;

    // Network thread only.
    std::function<void()> ready;
    std::unique_ptr<NetworkTimer> pause = std::make_unique<NetworkTimer>();
    bool started = false;

    Mutex mutex;
    Phase phase VEXIM_GUARDED_BY(mutex) = Phase::Parked;
    std::deque<Chunk> filled VEXIM_GUARDED_BY(mutex);
    std::vector<std::unique_ptr<std::uint8_t[]>> spare VEXIM_GUARDED_BY(mutex);
    bool atEnd VEXIM_GUARDED_BY(mutex) = false;
    ErrorPtr error VEXIM_GUARDED_BY(mutex);
    bool awaited VEXIM_GUARDED_BY(mutex) = false;
    bool lent VEXIM_GUARDED_BY(mutex) = false;
    bool abandoned VEXIM_GUARDED_BY(mutex) = false;

    // The pool's thread.
    void turn() noexcept override;
    void interrupt() override;
    bool open();
    bool mayRead();
    bool readMore();
    bool publish(bool mayLend);
    void wait(InputStream::Piece piece);
    void finish(ErrorPtr failure);

    // The network thread.
    void pauseFor(std::chrono::nanoseconds duration);
    void abandon();
    std::size_t readLent(char* target, std::size_t most) VEXIM_REQUIRES(mutex);

    /// Continues on a thread of the pool, if it is still waiting for `from`. If there is no thread,
    /// it fails.
    void resumeFrom(Phase from) {
        {
            const MutexLock lock(mutex);
            if (phase != from) return;
            phase = Phase::Queued;
        }
        if (!pool.add(shared_from_this()))
            finish(makeURLError(URLErrorUnknown, std::nullopt,
                                "no thread can be started to read the body"));
    }

    std::unique_ptr<std::uint8_t[]> emptyBuffer() {
        const MutexLock lock(mutex);
        if (spare.empty()) return std::make_unique_for_overwrite<std::uint8_t[]>(kChunkBytes);
        auto buffer = std::move(spare.back());
        spare.pop_back();
        return buffer;
    }

    /// Call it with the value that `awaited` had when something was added.
    void wake(bool wasAwaited) {
        if (!wasAwaited) return;
        NetworkThread::shared().post([weak = weak_from_this()] {
            const auto self = weak.lock();
            if (!self) return;
            // a copy: the call may destroy the reader, and with it the original
            if (const auto call = self->ready) call();
        });
    }
};

void BodyReader::Shared::turn() noexcept {
    if (!open()) return;
    while (mayRead() && readMore()) {
    }
}

/// Opens the stream, unless nobody wants it any more. False if there is nothing to read.
bool BodyReader::Shared::open() {
    if (std::exchange(opened, true)) return true;
    {
        const MutexLock lock(mutex);
        if (abandoned) {
            phase = Phase::Ended;
            return false;
        }
    }
    stream->open();
    ErrorPtr failure = stream->streamError();
    if (!failure) return true;
    finish(std::move(failure));
    return false;
}

/// False if it must wait, or has ended.
bool BodyReader::Shared::mayRead() {
    {
        const MutexLock lock(mutex);
        if (!abandoned) {
            if (filled.size() >= kMostChunks) phase = Phase::Parked;
            return phase == Phase::Queued;
        }
    }
    finish(nullptr);
    return false;
}

/// Reads one piece into the current chunk. False if it now waits for something else or has ended.
bool BodyReader::Shared::readMore() {
    if (!current.bytes) current.bytes = emptyBuffer();
    // Send the last bytes only if nothing follows: if the file has grown, the server must not get a
    // complete body.
    std::uint8_t next = 0;
    const bool isWhole = length && position == *length;
    const std::size_t room = kChunkBytes - current.count;
    const std::size_t most =
        length ? static_cast<std::size_t>(std::min<std::uint64_t>(room, *length - position)) : room;
    auto piece = isWhole ? stream->readPiece(&next, 1)
                         : stream->readPiece(current.bytes.get() + current.count, most);
    if (ErrorPtr failure = stream->streamError()) return finish(std::move(failure)), false;
    const auto fail = [this](const char* words) {
        finish(makeURLError(URLErrorRequestBodyStreamExhausted, std::nullopt, words));
        return false;
    };
    if (piece.count < 0) return fail("the body cannot be read");
    if (isWhole && piece.count > 0) return fail("the body is longer than its Content-Length");
    current.count += static_cast<std::size_t>(piece.count);
    position += static_cast<std::uint64_t>(piece.count);

    if (piece.count == 0 && !piece.isAwaiting()) {
        if (length && position < *length)
            return fail("the body is shorter than its Content-Length");
        publish(false);
        finish(nullptr);
        return false;
    }
    // Bytes before and after a visit to the main thread are sent together.
    const bool goesOnSoon = piece.onMain && piece.rest.count() <= 0 && current.count < kChunkBytes;
    const bool isHeldBack = goesOnSoon || (length && position == *length);
    const bool isLent = !isHeldBack && publish(!piece.isAwaiting());
    if (piece.isAwaiting()) return wait(std::move(piece)), false;
    return !isLent;
}

/// Passes on the current chunk. Returns true if the network thread itself reads on, as long as it
/// need not wait. Most files are sent right after they were written or viewed, and for them this
/// saves a copy and the thread switches.
bool BodyReader::Shared::publish(bool mayLend) {
    if (current.count == 0) return false;
    bool wasAwaited = false;
    bool isLent = false;
    {
        const MutexLock lock(mutex);
        filled.push_back(std::exchange(current, {}));
        isLent = lent = mayLend && !abandoned && stream->readsNonBlocking();
        if (lent) phase = Phase::Parked;
        wasAwaited = std::exchange(awaited, false);
    }
    wake(wasAwaited);
    return isLent;
}

void BodyReader::Shared::wait(InputStream::Piece piece) {
    {
        const MutexLock lock(mutex);
        phase = piece.onMain ? Phase::AwaitsMain : Phase::Paused;
    }
    auto thenRest = [self = shared_from_this(), duration = piece.rest] {
        NetworkThread::shared().post([self, duration] { self->pauseFor(duration); });
    };
    if (!piece.onMain) return thenRest();
    MainQueue::shared().async(
        [self = shared_from_this(), piece = std::move(piece), thenRest = std::move(thenRest)] {
            piece.onMain();
            if (piece.rest.count() <= 0) {
                self->resumeFrom(Phase::AwaitsMain);
                return;
            }
            {
                const MutexLock lock(self->mutex);
                self->phase = Phase::Paused;
            }
            thenRest();
        });
}

/// Without a timer the reader is gone, and only the stream must still be closed.
void BodyReader::Shared::pauseFor(std::chrono::nanoseconds duration) {
    if (!pause) {
        resumeFrom(Phase::Paused);
        return;
    }
    pause->start(duration, [weak = weak_from_this()] {
        if (const auto self = weak.lock()) self->resumeFrom(Phase::Paused);
    });
}

void BodyReader::Shared::finish(ErrorPtr failure) {
    stream->close();
    bool wasAwaited = false;
    {
        const MutexLock lock(mutex);
        phase = Phase::Ended;
        atEnd = true;
        error = std::move(failure);
        wasAwaited = std::exchange(awaited, false);
    }
    wake(wasAwaited);
}

void BodyReader::Shared::interrupt() {
    {
        const MutexLock lock(mutex);
        abandoned = true;
    }
    stream->interrupt();
}

void BodyReader::Shared::abandon() {
    pause.reset();
    interrupt();
    pool.giveUp(*this);
    resumeFrom(Phase::Parked);
    resumeFrom(Phase::Paused);
}

std::size_t BodyReader::Shared::readLent(char* target, std::size_t most) {
    // Leave the last bytes to the reader, which checks whether anything follows.
    const bool isNearEnd = length && *length - position <= most;
    const std::int64_t count =
        isNearEnd ? -1 : stream->readNonBlocking(reinterpret_cast<std::uint8_t*>(target), most);
    if (count <= 0) {
        lent = false;
        return 0;
    }
    position += static_cast<std::uint64_t>(count);
    return static_cast<std::size_t>(count);
}

BodyReader::BodyReader(std::shared_ptr<InputStream> stream, std::optional<std::uint64_t> length,
                       std::function<void()> ready, ReaderPool& pool)
    : shared_(std::make_shared<Shared>(std::move(stream), length, std::move(ready), pool)) {}

BodyReader::~BodyReader() {
    shared_->ready = nullptr;
    if (shared_->started) shared_->abandon();
}

BodyReader::Taken BodyReader::take(char* target, std::size_t most) {
    if (!shared_->started) {
        if (!shared_->stream->claim()) {
            return {0, false,
                    makeURLError(URLErrorRequestBodyStreamExhausted, std::nullopt,
                                 "the body cannot be read a second time")};
        }
        shared_->started = true;
        shared_->resumeFrom(Shared::Phase::Parked);
    }

    Taken taken;
    bool isReaderDue = false;
    {
        const MutexLock lock(shared_->mutex);
        while (taken.count < most && !shared_->filled.empty()) {
            Chunk& chunk = shared_->filled.front();
            const std::size_t count = std::min(most - taken.count, chunk.count - chunk.taken);
            std::memcpy(target + taken.count, chunk.bytes.get() + chunk.taken, count);
            taken.count += count;
            chunk.taken += count;
            if (chunk.taken < chunk.count) break;
            shared_->spare.push_back(std::move(chunk.bytes));
            shared_->filled.pop_front();
        }
        if (taken.count < most && shared_->lent)
            taken.count += shared_->readLent(target + taken.count, most - taken.count);
        // Calling the reader for every chunk would cost a thread switch each time.
        isReaderDue = !shared_->lent && shared_->filled.size() <= kMostChunks / 4;
        if (taken.count == 0) {
            taken.atEnd = shared_->atEnd && !shared_->error;
            taken.error = shared_->error;
            shared_->awaited = !shared_->atEnd;
        }
    }
    if (isReaderDue) shared_->resumeFrom(Shared::Phase::Parked);
    return taken;
}

bool BodyReader::isAwaited() const {
    const MutexLock lock(shared_->mutex);
    return shared_->awaited;
}

}  // namespace vexim
