#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>

#include "VexIMLib/Foundation/Error.h"
#include "VexIMLib/internal/Platform/Files/InputStream.h"
#include "VexIMLib/internal/Platform/Threads/ReaderPool.h"

namespace vexim {

/// Reads an upload's body on the threads of a pool into a bounded buffer (512 KiB), because a
/// stream may wait for a disk and the network thread may not. It holds a thread only while it
/// reads: not while the buffer is full, during a pause, or while the main thread is awaited. The
/// stream is opened when the first bytes are asked for. What can be read without waiting is read by
/// whoever takes it.
///
/// Used on the network thread. Destroying it interrupts the stream and waits for nothing.
class BodyReader {
public:
    /// What `take` found: bytes, or the end, or an error; none of them means that bytes will come
    /// later.
    struct Taken {
        std::size_t count = 0;
        bool atEnd = false;
        ErrorPtr error;
    };

    /// `length`: how many bytes the stream must give, exactly (else an error); nullopt takes as
    /// many as come. `ready` is called on the network thread when bytes, the end or an error are
    /// there after a `take` that found nothing.
    BodyReader(std::shared_ptr<InputStream> stream, std::optional<std::uint64_t> length,
               std::function<void()> ready, ReaderPool& pool = ReaderPool::shared());
    BodyReader(const BodyReader&) = delete;
    BodyReader& operator=(const BodyReader&) = delete;
    ~BodyReader();

    /// Copies up to `most` bytes to `target`.
    Taken take(char* target, std::size_t most);
    /// Whether the last `take` found nothing, so that the body is what the transfer waits for.
    bool isAwaited() const;

    struct Shared;

private:
    std::shared_ptr<Shared> shared_;
};

}  // namespace vexim
