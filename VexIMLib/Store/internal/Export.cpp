#include "VexIMLib/Store/internal/Export.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <utility>
#include <vector>

#include "VexIMLib/Store/VXIMStoreErrors.h"
#include "VexIMLib/Store/internal/Reading.h"

namespace vexim::store {
namespace {

constexpr std::int32_t kSlice = 1000;

/// A running export. It is made and ended elsewhere, and otherwise used on the store's thread.
class Lines {
public:
    Lines(std::string path, std::optional<VXIMConversationId> only)
        : path_(std::move(path)),
          only_(std::move(only)) {}
    ~Lines() { discard(); }
    Lines(const Lines&) = delete;
    Lines& operator=(const Lines&) = delete;

    /// True at the end.
    bool writeSome(Tables& tables) {
        try {
            return tryToWriteSome(tables);
        } catch (const Failure&) {
            discard();  // before it is reported
            throw;
        }
    }
    std::int64_t count() const { return count_; }

private:
    bool tryToWriteSome(Tables& tables) {
        if (!isBegun_) begin(tables);
        if (conversations_.empty()) {
            finish();
            return true;
        }
        const auto messages = messagesAfter(tables, conversations_.back(), position_, kSlice);
        std::string text;
        for (const VXIMStoredMessage& each : messages) text += toJSON(each.record()) + '\n';
        writeAll(descriptor_, text, "The export file cannot be written.");
        count_ += static_cast<std::int64_t>(messages.size());
        if (messages.size() < static_cast<std::size_t>(kSlice)) {
            conversations_.pop_back();
            position_.reset();
        } else {
            position_ = messages.back().position();
        }
        return false;
    }

    void discard() {
        if (descriptor_ >= 0) ::close(std::exchange(descriptor_, -1));
        if (!isWhole_ && std::exchange(isBegun_, false)) removeFile(partial());
    }

    std::string partial() const { return path_ + ".part"; }

    void begin(Tables& tables) {
        if (only_) {
            conversations_.push_back(*only_);
        } else {
            for (const Tables::Conversation* const each : tables.all())
                conversations_.push_back(each->id);
        }
        descriptor_ =
            ::open(partial().c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC | O_NOFOLLOW, 0600);
        if (descriptor_ < 0)
            failWithSystem(VXIMStoreErrorFailed, "The export file cannot be created.", errno);
        isBegun_ = true;
        if (::fchmod(descriptor_, 0600) != 0)
            failWithSystem(VXIMStoreErrorFailed, "The export file belongs to another user.", errno);
    }

    void finish() {
        if (::fsync(descriptor_) != 0 || ::rename(partial().c_str(), path_.c_str()) != 0) {
            failWithSystem(VXIMStoreErrorFailed, "The export file cannot be completed.", errno);
        }
        isWhole_ = true;
    }

    const std::string path_;
    const std::optional<VXIMConversationId> only_;
    std::vector<VXIMConversationId> conversations_;  // the remaining ones
    std::optional<VXIMStorePosition> position_;
    std::int64_t count_ = 0;
    int descriptor_ = -1;
    bool isBegun_ = false;
    bool isWhole_ = false;
};

void writeOn(const std::shared_ptr<Engine>& engine, std::shared_ptr<Lines> lines,
             VXIMCountCompletion completion) {
    const auto written = [engine, lines, completion = std::move(completion)](
                             std::optional<bool> isAtEnd, ErrorPtr error) mutable {
        if (!isAtEnd) {
            if (completion) completion(std::nullopt, std::move(error));
        } else if (*isAtEnd) {
            if (completion) completion(lines->count(), nullptr);
        } else {
            writeOn(engine, std::move(lines), std::move(completion));
        }
    };
    engine->run(Mode::Read, std::function<void(std::optional<bool>, ErrorPtr)>(written),
                [lines](Tables& tables) { return lines->writeSome(tables); });
}

}  // namespace

void exportLines(const std::shared_ptr<Engine>& engine, std::string path,
                 std::optional<VXIMConversationId> conversation, VXIMCountCompletion completion) {
    writeOn(engine, std::make_shared<Lines>(std::move(path), std::move(conversation)),
            std::move(completion));
}

}  // namespace vexim::store
