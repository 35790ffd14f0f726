#include "VexIMLib/internal/Platform/BodyReader.h"

#include <algorithm>
#include <cstring>
#include <deque>
#include <utility>
#include <vector>

#include "VexIMLib/Foundation/ThreadSafety.h"
#include "VexIMLib/internal/Platform/LibraryThreads.h"
#include "VexIMLib/internal/Platform/NetworkThread.h"
#include "VexIMLib/internal/Platform/URLErrors.h"

namespace vexim {
namespace {

// Together what stays in a core's cache with the copies that libcurl and the system make of it. Longer chunks cost fewer switches
// between the reader and the network thread.
constexpr std::size_t kChunkBytes = 128 * 1024;
constexpr std::size_t kMostChunks = 4;

struct Chunk {
    std::unique_ptr<std::uint8_t[]> bytes;
    std::size_t count = 0;
    std::size_t taken = 0;
};

}  // namespace

struct BodyReader::Shared : std::enable_shared_from_this<BodyReader::Shared> {
    std::shared_ptr<InputStream> stream;
    std::optional<std::uint64_t> length;
    // The stream, and how far it has been read, are the reader's, or while it is `lent` the network thread's.
    std::uint64_t position = 0;
    std::function<void()> ready;  // network thread only
    bool started = false;         // network thread only

    Mutex mutex;
    ConditionVariable readerMayGoOn;
    std::deque<Chunk> filled VEXIM_GUARDED_BY(mutex);
    std::vector<std::unique_ptr<std::uint8_t[]>> spare VEXIM_GUARDED_BY(mutex);
    bool atEnd VEXIM_GUARDED_BY(mutex) = false;
    ErrorPtr error VEXIM_GUARDED_BY(mutex);
    bool awaited VEXIM_GUARDED_BY(mutex) = false;
    bool lent VEXIM_GUARDED_BY(mutex) = false;
    bool abandoned VEXIM_GUARDED_BY(mutex) = false;

    // The reader's thread.
    void run();
    ErrorPtr readAll();
    ErrorPtr readChunk(Chunk& chunk, bool& ended);
    bool publish(Chunk chunk);
    void finish(ErrorPtr failure);

    // The network thread.
    std::size_t readLent(char* target, std::size_t most) VEXIM_REQUIRES(mutex);

    std::unique_ptr<std::uint8_t[]> emptyBuffer() {
        const MutexLock lock(mutex);
        if (spare.empty()) return std::make_unique_for_overwrite<std::uint8_t[]>(kChunkBytes);
        auto buffer = std::move(spare.back());
        spare.pop_back();
        return buffer;
    }

    void abandon() {
        {
            const MutexLock lock(mutex);
            abandoned = true;
            readerMayGoOn.notifyAll();
        }
        stream->interrupt();
    }

    bool isAbandoned() {
        const MutexLock lock(mutex);
        return abandoned;
    }

    /// To be called with what `awaited` was when something was added.
    void wake(bool wasAwaited) {
        if (!wasAwaited) return;
        NetworkThread::shared().post([weak = weak_from_this()] {
            const auto self = weak.lock();
            if (!self) return;
            if (const auto call = self->ready) call();  // a copy: the call may destroy the reader, and with it the original
        });
    }
};

void BodyReader::Shared::run() {
    if (isAbandoned()) return;
    stream->open();
    ErrorPtr failure = stream->streamError();
    if (!failure) failure = readAll();
    stream->close();
    finish(std::move(failure));
}

ErrorPtr BodyReader::Shared::readAll() {
    for (bool ended = false; !ended;) {
        Chunk chunk{emptyBuffer()};
        if (ErrorPtr failure = readChunk(chunk, ended)) return failure;
        if (chunk.count > 0 && !publish(std::move(chunk))) return nullptr;
    }
    if (length && position < *length) {
        return makeURLError(URLErrorRequestBodyStreamExhausted, std::nullopt, "the body is shorter than announced");
    }
    return nullptr;
}

ErrorPtr BodyReader::Shared::readChunk(Chunk& chunk, bool& ended) {
    const std::uint64_t most = length ? std::min<std::uint64_t>(kChunkBytes, *length - position) : kChunkBytes;
    if (most > 0) {
        const std::int64_t count = stream->read(chunk.bytes.get(), static_cast<std::size_t>(most));
        if (ErrorPtr failure = stream->streamError()) return failure;
        if (count < 0) return makeURLError(URLErrorRequestBodyStreamExhausted, std::nullopt, "the body cannot be read");
        chunk.count = static_cast<std::size_t>(count);
        position += chunk.count;
        ended = count == 0;
    }
    if (!length || position < *length) return nullptr;
    // The last bytes go out only when nothing follows them: the peer must not get a whole body of a file that has grown.
    std::uint8_t next = 0;
    const std::int64_t more = stream->read(&next, 1);
    if (ErrorPtr failure = stream->streamError()) return failure;
    if (more > 0) return makeURLError(URLErrorRequestBodyStreamExhausted, std::nullopt, "the body is longer than announced");
    ended = true;
    return nullptr;
}

/// False when the body is not wanted any more.
bool BodyReader::Shared::publish(Chunk chunk) {
    bool wasAwaited = false;
    {
        const MutexLock lock(mutex);
        while (filled.size() >= kMostChunks && !abandoned) readerMayGoOn.wait(mutex);
        if (abandoned) return false;
        filled.push_back(std::move(chunk));
        // The network thread reads on by itself for as long as that takes no waiting. Most files that are sent were just written
        // or looked at; for them this spares a copy and the switches of threads.
        lent = stream->readsNonBlocking();
        wasAwaited = std::exchange(awaited, false);
    }
    wake(wasAwaited);
    const MutexLock lock(mutex);
    while (lent && !abandoned) readerMayGoOn.wait(mutex);
    lent = false;
    return !abandoned;
}

std::size_t BodyReader::Shared::readLent(char* target, std::size_t most) {
    // The last bytes are left to the reader, who looks for what may follow them.
    const bool isNearEnd = length && *length - position <= most;
    const std::int64_t count = isNearEnd ? -1 : stream->readNonBlocking(reinterpret_cast<std::uint8_t*>(target), most);
    if (count <= 0) {
        lent = false;
        readerMayGoOn.notifyAll();
        return 0;
    }
    position += static_cast<std::uint64_t>(count);
    return static_cast<std::size_t>(count);
}

void BodyReader::Shared::finish(ErrorPtr failure) {
    bool wasAwaited = false;
    {
        const MutexLock lock(mutex);
        atEnd = true;
        error = std::move(failure);
        wasAwaited = std::exchange(awaited, false);
    }
    wake(wasAwaited);
}

BodyReader::BodyReader(std::shared_ptr<InputStream> stream, std::optional<std::uint64_t> length, std::function<void()> ready)
    : shared_(std::make_shared<Shared>()) {
    shared_->stream = std::move(stream);
    shared_->length = length;
    shared_->ready = std::move(ready);
}

BodyReader::~BodyReader() {
    shared_->ready = nullptr;
    if (shared_->started) shared_->abandon();
}

BodyReader::Taken BodyReader::take(char* target, std::size_t most) {
    if (!shared_->started) {
        if (!shared_->stream->claim()) {
            return {0, false, makeURLError(URLErrorRequestBodyStreamExhausted, std::nullopt, "the body has been read before")};
        }
        shared_->started = LibraryThreads::start(
            "vexim-body", LibraryThreads::AtExit::Leave, [shared = shared_] { shared->run(); },
            [shared = shared_] { shared->abandon(); });
        if (!shared_->started) return {0, false, makeURLError(URLErrorUnknown, std::nullopt, "no thread to read the body")};
    }

    Taken taken;
    bool wakesReader = false;
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
            // Woken for every chunk, the reader would cost a switch of threads each.
            if (shared_->filled.size() == kMostChunks / 4) wakesReader = true;
        }
        if (taken.count < most && shared_->lent) taken.count += shared_->readLent(target + taken.count, most - taken.count);
        if (taken.count == 0) {
            taken.atEnd = shared_->atEnd && !shared_->error;
            taken.error = shared_->error;
            shared_->awaited = !shared_->atEnd;
        }
    }
    if (wakesReader) shared_->readerMayGoOn.notifyAll();  // without the lock, for which it would have to wait at once
    return taken;
}

bool BodyReader::isAwaited() const {
    const MutexLock lock(shared_->mutex);
    return shared_->awaited;
}

}  // namespace vexim
