// How many threads read the bodies of uploads, and who waits for whom.

#include "VexIMLib/internal/Platform/Loading/BodyReader.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <condition_variable>
#include <future>
#include <mutex>
#include <string>
#include <vector>

#include "VexIMLib/Foundation/MainQueue.h"
#include "VexIMLib/internal/Platform/Threads/NetworkThread.h"
#include "support/Eventually.h"

namespace vexim::testing {
namespace {

using namespace std::chrono_literals;

/// Gives three bytes, one at a time, or a flood. The test chooses what happens before each of them.
class Body final : public InputStream {
public:
    enum class Before { Nothing, Pause, LongPause, MainThread, Release, Flood };
    using InputStream::InputStream;
    bool initialise(Before before) {
        before_ = before;
        return true;
    }

    void open() override { opened = true; }
    void close() override { closed = true; }
    std::int64_t read(std::uint8_t* buffer, std::size_t most) override {
        if (before_ == Before::Flood)
            return given += static_cast<int>(most), static_cast<std::int64_t>(most);
        if (before_ == Before::Release) {
            std::unique_lock lock(mutex_);
            isBlocked = true;
            changed_.wait(lock, [this] { return released_; });
        }
        if (given == 3) return 0;
        *buffer = static_cast<std::uint8_t>('a' + given++);
        return 1;
    }
    Piece readPiece(std::uint8_t* buffer, std::size_t most) override {
        Piece piece{read(buffer, most)};
        if (piece.count == 0) return piece;
        if (before_ == Before::Pause) piece.rest = 1ms;
        if (before_ == Before::LongPause) piece.rest = 1h;
        if (before_ == Before::MainThread) {
            piece.onMain = [this] { calledOnMain = MainQueue::shared().isMainThread(); };
        }
        return piece;
    }
    bool hasBytesAvailable() const override { return true; }
    StreamStatus streamStatus() const override { return StreamStatus::Open; }
    ErrorPtr streamError() const override { return nullptr; }

    /// Separate from `interrupt`, because a read that waits for a disk cannot be interrupted.
    void release() {
        const std::lock_guard lock(mutex_);
        released_ = true;
        changed_.notify_all();
    }

    std::atomic<int> given{0};
    std::atomic<bool> opened{false};
    std::atomic<bool> closed{false};
    std::atomic<bool> isBlocked{false};
    std::atomic<bool> calledOnMain{false};

private:
    Before before_ = Before::Nothing;
    std::mutex mutex_;
    std::condition_variable changed_;
    bool released_ = false;
};
using Before = Body::Before;

class CountedPool : public ReaderPool {
public:
    using ReaderPool::ReaderPool;
    std::size_t threadCount() {
        const MutexLock lock(mutex_);
        return threads_;
    }
};

CountedPool& newPool(std::chrono::milliseconds patience) {
    // a pool outlives its threads, which outlive the test
    static auto& kept = *new std::vector<CountedPool*>;
    return *kept.emplace_back(new CountedPool(patience));
}

/// Uploads a body to a connection that takes everything at once, but only a little of a flood.
class Upload : public std::enable_shared_from_this<Upload> {
public:
    static std::shared_ptr<Upload> begin(ReaderPool& pool, Before before) {
        auto upload = std::make_shared<Upload>();
        upload->body = create<Body>(before);
        const auto length =
            before == Before::Flood ? std::nullopt : std::optional<std::uint64_t>(3);
        NetworkThread::shared().post([upload, length, &pool] {
            const auto ready = [weak = std::weak_ptr<Upload>(upload)] {
                if (const auto self = weak.lock()) self->takeAll();
            };
            upload->reader_ = std::make_unique<BodyReader>(upload->body, length, ready, pool);
            upload->takeAll();
        });
        return upload;
    }
    /// Returns when the reader is gone.
    void cancel() {
        std::atomic<bool> gone{false};
        NetworkThread::shared().post([self = shared_from_this(), &gone] {
            self->reader_ = nullptr;
            gone = true;
        });
        EXPECT_TRUE(spinUntil([&] { return gone.load(); }));
    }

    std::shared_ptr<Body> body;
    std::atomic<bool> ended{false};
    std::string taken;  // complete at the end

private:
    void takeAll() {
        if (!reader_) return;
        char buffer[2];
        for (;;) {
            const auto found = reader_->take(buffer, sizeof buffer);
            taken.append(buffer, found.count);
            if (taken.size() > 3) return;
            if (found.count > 0) continue;
            if (!found.atEnd && !found.error) return;
            reader_ = nullptr;
            ended = true;
            return;
        }
    }
    std::unique_ptr<BodyReader> reader_;
};
using Uploads = std::vector<std::shared_ptr<Upload>>;

Uploads begin(std::size_t count, ReaderPool& pool, Before before) {
    Uploads uploads;
    for (std::size_t i = 0; i < count; ++i) uploads.push_back(Upload::begin(pool, before));
    return uploads;
}

/// Returns when the network thread has called what was due within 50 ms.
void letTimersFire() {
    std::promise<void> fired;
    NetworkThread::shared().post([&fired] {
        const auto timer = std::make_shared<NetworkTimer>();
        timer->start(50ms, [&fired, timer] { fired.set_value(); });
    });
    fired.get_future().get();
}

bool areDone(const Uploads& uploads) {
    return std::all_of(uploads.begin(), uploads.end(),
                       [](const auto& each) { return each->ended && each->taken == "abc"; });
}

TEST(BodyReader, EightHundredBodiesNeedFourThreads) {
    for (const auto before : {Before::Nothing, Before::Pause, Before::MainThread}) {
        auto& pool = newPool(1h);
        const auto uploads = begin(800, pool, before);
        std::size_t most = 0;
        EXPECT_TRUE(eventuallyElsewhere([&] {
            most = std::max(most, pool.threadCount());
            return areDone(uploads);
        }));
        EXPECT_LE(most, ReaderPool::kReaders) << static_cast<int>(before);
        EXPECT_EQ(uploads.front()->body->calledOnMain, before == Before::MainThread);
    }
}

TEST(BodyReader, ReadsLittleAheadOfWhatAPeerTakes) {
    auto& pool = newPool(1h);
    const auto floods = begin(ReaderPool::kReaders, pool, Before::Flood);
    for (const auto& flood : floods) EXPECT_TRUE(spinUntil([&] { return flood->body->given > 0; }));
    const auto other = Upload::begin(pool, Before::Nothing);
    EXPECT_TRUE(spinUntil([&] { return other->ended.load(); })) << "a full buffer needs no thread";
    for (const auto& flood : floods) {
        EXPECT_LE(flood->body->given, 512 * 1024);
        flood->cancel();
    }
}

TEST(BodyReader, WaitingTakesNoThread) {
    for (const auto before : {Before::LongPause, Before::MainThread}) {
        auto& pool = newPool(1h);
        const auto waiting = begin(8, pool, before);
        const auto other = Upload::begin(pool, Before::Nothing);
        EXPECT_TRUE(spinUntil([&] { return other->ended.load(); }))
            << "the main queue stands still";
        letTimersFire();
        for (const auto& upload : waiting) {
            EXPECT_FALSE(upload->ended);
            upload->cancel();
        }
        // A read that waits for the main thread may be inside the stream, so the stream is closed
        // only after it.
        EXPECT_TRUE(eventuallyElsewhere([&] {
            return std::all_of(waiting.begin(), waiting.end(),
                               [](const auto& each) { return each->body->closed.load(); });
        }));
    }
}

TEST(BodyReader, FourBlockedBodiesLetAFifthThrough) {
    auto& pool = newPool(1ms);
    const auto blocked = begin(ReaderPool::kReaders, pool, Before::Release);
    for (const auto& upload : blocked)
        EXPECT_TRUE(spinUntil([&] { return upload->body->isBlocked.load(); }));
    const auto others = begin(20, pool, Before::Nothing);
    EXPECT_TRUE(spinUntil([&] { return areDone(others); }));
    for (const auto& upload : blocked) upload->body->release();
    EXPECT_TRUE(
        spinUntil([&] { return areDone(blocked) && pool.threadCount() <= ReaderPool::kReaders; }));
}

TEST(BodyReader, ABlockedBodyThatIsCancelledIsNotWaitedFor) {
    auto& pool = newPool(1h);
    const auto blocked = begin(ReaderPool::kReaders, pool, Before::Release);
    for (const auto& upload : blocked)
        EXPECT_TRUE(spinUntil([&] { return upload->body->isBlocked.load(); }));
    const auto unwanted = Upload::begin(pool, Before::Nothing);
    unwanted->cancel();
    const auto other = Upload::begin(pool, Before::Nothing);
    for (const auto& upload : blocked) upload->cancel();
    EXPECT_TRUE(spinUntil([&] { return other->ended.load(); }));
    EXPECT_FALSE(unwanted->body->opened);
    EXPECT_LE(pool.threadCount(), ReaderPool::kReaders);
    for (const auto& upload : blocked) {
        upload->body->release();
        EXPECT_TRUE(spinUntil([&] { return upload->body->closed.load(); }));
        EXPECT_FALSE(upload->ended);
    }
}

TEST(BodyReader, NoMoreThreadsThanItsBoundAreBlocked) {
    auto& pool = newPool(1ms);
    const auto blocked = begin(ReaderPool::kMostThreads + 1, pool, Before::Release);
    EXPECT_TRUE(spinUntil([&] { return pool.threadCount() == ReaderPool::kMostThreads; }));
    EXPECT_TRUE(spinUntil([&] {
        const auto inside = std::count_if(blocked.begin(), blocked.end(), [](const auto& each) {
            return each->body->isBlocked.load();
        });
        return inside == std::int64_t{ReaderPool::kMostThreads};
    }));
    letTimersFire();  // the pool looks every millisecond whether it may start one more
    EXPECT_EQ(pool.threadCount(), ReaderPool::kMostThreads);
    for (const auto& upload : blocked) upload->body->release();
    EXPECT_TRUE(
        spinUntil([&] { return areDone(blocked) && pool.threadCount() <= ReaderPool::kReaders; }));
}

}  // namespace
}  // namespace vexim::testing
