#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <utility>

#include "VexIMLib/Foundation/Data.h"
#include "VexIMLib/Foundation/Error.h"
#include "VexIMLib/Foundation/Object.h"
#include "VexIMLib/internal/Platform/Files/Stream.h"

namespace vexim {

/// A destination for bytes, written by one thread at a time. Polled, like `InputStream`.
class OutputStream : public Object {
public:
    using Object::Object;

    static std::shared_ptr<OutputStream> toMemory();
    /// Creates the file, or empties it unless `append`. If it cannot be opened, `open` sets the
    /// error.
    static std::shared_ptr<OutputStream> toFileAtPath(std::string path, bool append);

    virtual void open() = 0;
    virtual void close() = 0;
    /// Writes up to `length` bytes and returns how many were taken (never 0 if there is space); -1
    /// on an error (see `streamError`).
    virtual std::int64_t write(const std::uint8_t* bytes, std::size_t length) = 0;
    /// The same for `Data`, which a stream may keep instead of copying.
    virtual std::int64_t writeData(const Data& data) { return write(data.bytes(), data.size()); }
    virtual bool hasSpaceAvailable() const = 0;
    virtual StreamStatus streamStatus() const = 0;
    virtual ErrorPtr streamError() const = 0;
    /// What was written so far to a stream in memory, even after `close`; empty for other streams.
    virtual Data dataWrittenToMemory() { return {}; }
};

}  // namespace vexim
