#pragma once

#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "VexIMLib/Foundation/Log.h"

namespace vexim::testing {

/// Collects the log's lines while it lives; afterwards nothing is logged.
class LogCapture {
public:
    LogCapture() {
        setLogSink([kept = kept_](LogLevel, std::string_view line) {
            std::lock_guard lock(kept->mutex);
            kept->lines.emplace_back(line);
        });
    }
    ~LogCapture() { setLogSink(nullptr); }
    LogCapture(const LogCapture&) = delete;
    LogCapture& operator=(const LogCapture&) = delete;

    std::vector<std::string> lines() const {
        std::lock_guard lock(kept_->mutex);
        return kept_->lines;
    }

private:
    struct Kept {
        std::mutex mutex;
        std::vector<std::string> lines;
    };
    std::shared_ptr<Kept> kept_ = std::make_shared<Kept>();
};

}  // namespace vexim::testing
