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
/// stream may wait for a disk and the network thread may not. It uses a thread only while it reads:
/// not while the buffer is full, during a pause, or while it waits for the main thread. The stream
/// is opened when the first bytes are needed. Bytes that need no waiting are read by the thread
/// that takes them.
///
/// Use it on the network thread. Destroying it interrupts the stream and does not wait.
class BodyReader {
public:
    /// The result of `take`: bytes, the end, or an error. If it is none of these, bytes will come
    /// later.
    struct Taken {
        std::size_t count = 0;
        bool atEnd = false;
        ErrorPtr error;
    };

    /// `length` is the exact number of bytes that the stream must give, otherwise it fails; nullopt
    /// accepts any number. If a `take` found nothing, `ready` is called on the network thread when
    /// there are bytes, the end or an error.
    BodyReader(std::shared_ptr<InputStream> stream, std::optional<std::uint64_t> length,
               std::function<void()> ready, ReaderPool& pool = ReaderPool::shared());
    BodyReader(const BodyReader&) = delete;
    BodyReader& operator=(const BodyReader&) = delete;
    ~BodyReader();

    /// Copies up to `most` bytes to `target`.
    Taken take(char* target, std::size_t most);
    /// Whether the last `take` found nothing, so the transfer is waiting for the body.
    bool isAwaited() const;

    struct Shared;

private:
    std::shared_ptr<Shared> shared_;
};

}  // namespace vexim
