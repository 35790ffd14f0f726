#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace vexim {

/// Bytes that are being written to the system, which may take fewer than it is given.
class OutgoingBytes {
public:
    /// Adds `bytes`. Afterwards it is empty, and may own other memory.
    void take(std::string& bytes) {
        if (bytes_.empty()) {
            bytes_.swap(bytes);
        } else {
            bytes_ += bytes;
        }
        bytes.clear();
    }
    std::string_view rest() const noexcept { return std::string_view(bytes_).substr(sent_); }
    bool empty() const noexcept { return sent_ == bytes_.size(); }

    void didSend(std::size_t count) {
        sent_ += count;
        if (empty()) {
            constexpr std::size_t kKept = 16 * 1024;
            if (bytes_.capacity() > kKept) std::string().swap(bytes_);
            bytes_.clear();
            sent_ = 0;
        } else if (sent_ >= bytes_.size() / 2) {
            // Otherwise a server that always leaves some bytes unread would make us keep everything
            // that it has read.
            bytes_.erase(0, sent_);
            sent_ = 0;
        }
    }

private:
    std::string bytes_;
    std::size_t sent_ = 0;
};

}  // namespace vexim
