#pragma once

#include <algorithm>
#include <condition_variable>
#include <cstring>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>

#include "VexIMLib/internal/Platform/Files/InputStream.h"

namespace vexim::testing {

/// A body that a test writes while it is sent. A read waits for bytes. It cannot be sent again.
class WrittenStream final : public InputStream {
public:
    using InputStream::InputStream;
    static std::shared_ptr<WrittenStream> make() { return create<WrittenStream>(); }
    bool initialise() { return true; }

    void write(std::string_view bytes) {
        change([&] { bytes_.append(bytes); });
    }
    void end() {
        change([this] { isOver_ = true; });
    }

    void open() override {}
    void close() override { end(); }
    std::int64_t read(std::uint8_t* buffer, std::size_t maxLength) override {
        std::unique_lock lock(mutex_);
        changed_.wait(lock, [this] { return isOver_ || !bytes_.empty(); });
        const std::size_t count = std::min(maxLength, bytes_.size());
        std::memcpy(buffer, bytes_.data(), count);
        bytes_.erase(0, count);
        return static_cast<std::int64_t>(count);
    }
    bool hasBytesAvailable() const override { return streamStatus() == StreamStatus::Open; }
    StreamStatus streamStatus() const override {
        const std::lock_guard lock(mutex_);
        return isOver_ && bytes_.empty() ? StreamStatus::AtEnd : StreamStatus::Open;
    }
    ErrorPtr streamError() const override { return nullptr; }
    void interrupt() override { end(); }

private:
    template <class Change>
    void change(Change change) {
        const std::lock_guard lock(mutex_);
        change();
        changed_.notify_all();
    }

    mutable std::mutex mutex_;
    std::condition_variable changed_;
    std::string bytes_;
    bool isOver_ = false;
};

}  // namespace vexim::testing
