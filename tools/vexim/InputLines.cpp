#include "InputLines.h"

#include <unistd.h>

#include <array>
#include <cerrno>
#include <utility>

void InputLines::go() {
    if (isStopped_ || std::exchange(isHandingOver_, true)) return;
    while (!isStopped_ && !isBusy_()) {
        const auto end = bytes_.find('\n', searched_);
        if (end == std::string::npos) {
            searched_ = bytes_.size();
            break;
        }
        const std::string line = bytes_.substr(taken_, end - taken_);
        taken_ = searched_ = end + 1;
        line_(line);
    }
    isHandingOver_ = false;
    if (isStopped_) return;
    const bool isHeld = isBusy_();
    if (!isHeld) {
        bytes_.erase(0, std::exchange(taken_, 0));
        searched_ = bytes_.size();
    }
    if (isAtEnd_ && !isHeld) {
        // the last line may have no line end
        if (!bytes_.empty()) line_(std::exchange(bytes_, {}));
        stop();
        return ended_();
    }
    if (isHeld == isWatching_ && !isAtEnd_) {
        if (isHeld) loop_.unwatch(STDIN_FILENO);
        if (!isHeld) loop_.watch(STDIN_FILENO, [this](bool) { read(); });
        isWatching_ = !isHeld;
    }
}

void InputLines::stop() {
    isStopped_ = true;
    if (std::exchange(isWatching_, false)) loop_.unwatch(STDIN_FILENO);
}

void InputLines::read() {
    std::array<char, 65'536> bytes{};
    const auto count = ::read(STDIN_FILENO, bytes.data(), bytes.size());
    if (count < 0 && (errno == EINTR || errno == EAGAIN)) return;
    if (count > 0) {
        bytes_.append(bytes.data(), static_cast<std::size_t>(count));
    } else {
        isAtEnd_ = true;
        loop_.unwatch(STDIN_FILENO);
        isWatching_ = false;
    }
    go();
}
