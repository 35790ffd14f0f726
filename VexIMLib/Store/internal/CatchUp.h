#pragma once

#include <chrono>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "VexIMLib/Store/internal/HistoryPages.h"
#include "VexIMLib/Store/internal/Operations.h"

namespace vexim::store {

/// Reads the histories back to known messages, after each login and on request. Main thread only.
///
/// A history is read backwards from its end, page by page, and each page is stored at once. The
/// conversation's mark moves only when known messages are reached. So if the program ends in
/// between, there is no hole: the next one starts from the old mark.
class CatchUp : public std::enable_shared_from_this<CatchUp> {
public:
    struct Limits {
        std::int64_t mostMessages = 2'000;   // of one conversation at one time
        std::chrono::milliseconds farthest;  // back from now
    };
    /// The result of catching up once.
    struct Result {
        std::int64_t missedCount = 0;
        std::int64_t gapCount = 0;
        ErrorPtr error;
    };
    struct Callbacks {
        std::function<void(std::vector<Arrival>, MergedCompletion)> insert;
        /// A history that `read` asked for was read, or could not be (then with an error).
        std::function<void(const VXIMConversationId&, const ErrorPtr&)> didRead;
        /// Everything that a login has started is done.
        std::function<void(const Result&)> didCatchUp;
    };

    CatchUp(std::shared_ptr<VXIMMessageStore> store, Callbacks callbacks, Limits limits);

    /// The service has accepted the login.
    void linkDidOpen();
    void linkDidClose();
    /// Reads a history back to known messages, and at least to this time.
    void read(const VXIMConversationId& conversation, std::int64_t sinceMillis);
    /// Reads the newer end of a gap. `completion` gets how many messages were stored.
    void fillGap(const VXIMConversationId& conversation, VXIMStoredGap gap,
                 VXIMCountCompletion completion);
    /// A live message was stored. While the connection is up, nothing is missing before it.
    void didStoreLive(const VXIMConversationId& conversation, std::int64_t sentAtMillis);

private:
    struct Reading {
        bool isRunning = false;
        bool isWanted = false;  // (again) from the end of the history
        std::int64_t sinceMillis = INT64_MAX;

        // Of the current run.
        KnownHistory history;
        std::int64_t untilMillis = INT64_MAX;
        std::int64_t beforeMillis = 0;
        std::int32_t pageSize = 0;
        std::int64_t oldestMillis = INT64_MAX;
        std::int64_t newestMillis = 0;
        std::int64_t count = 0;
        int knownRun = 0;
        int idlePages = 0;  // pages in a row without older messages
        int failures = 0;
    };

    bool isStale(std::uint64_t link) const noexcept { return link != link_ || !isOpen_; }
    void list(int failures);
    void begin(std::vector<VXIMConversation> known);
    void enqueue(const VXIMConversationId& conversation);
    void enqueueOnce(const VXIMConversationId& conversation);
    void startQueued();
    void start(const VXIMConversationId& conversation);
    void requestPage(const VXIMConversationId& conversation);
    void narrowGap(const VXIMConversationId& conversation, VXIMStoredGap gap,
                   std::int64_t reachedMillis, std::int64_t count, VXIMCountCompletion completion);
    void didGetPage(const VXIMConversationId& conversation, const HistoryPage& page);
    void didStorePage(const VXIMConversationId& conversation, const std::vector<Arrival>& page,
                      const std::vector<Merged>& merged, bool bringsOlder);
    void tryAgainLater(const VXIMConversationId& conversation, const ErrorPtr& error);
    void finish(const VXIMConversationId& conversation, bool isCutOff);
    void end(const VXIMConversationId& conversation, const ErrorPtr& error);
    void markRoom(const VXIMConversationId& conversation, std::int64_t lastMillis);
    void reportWhenDone();

    const std::shared_ptr<VXIMMessageStore> store_;
    Operations operations_;
    const Callbacks callbacks_;
    const Limits limits_;
    std::map<VXIMConversationId, Reading> readings_;
    std::deque<VXIMConversationId> queue_;
    std::size_t runningCount_ = 0;
    bool isOpen_ = false;
    bool isListing_ = false;
    bool isFresh_ = false;  // the store was empty: messages read now do not count as unread
    bool isReported_ = true;
    std::uint64_t link_ = 0;
    Result result_;
    // the newest time of live messages since the mark
    std::map<VXIMConversationId, std::int64_t> live_;
    std::set<VXIMConversationId> complete_;  // read in this connection
};

}  // namespace vexim::store
