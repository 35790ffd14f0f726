#include "support/Completions.h"

#include <mutex>
#include <vector>

#include "VexIMLib/Foundation/MainQueue.h"

namespace vexim::testing {

namespace {

std::mutex mutex;
std::vector<std::shared_ptr<CompletionWatch>> watches;  // of the running test
std::atomic<int> pending{0};

std::string place(std::source_location where) { return std::string(where.file_name()) + ":" + std::to_string(where.line()); }

}  // namespace

std::shared_ptr<CompletionWatch> CompletionWatch::make(Runs runs, std::source_location where) {
    std::shared_ptr<CompletionWatch> watch(new CompletionWatch(runs, where));
    if (runs == Runs::ExactlyOnce) ++pending;
    std::lock_guard lock(mutex);
    watches.push_back(watch);
    return watch;
}

void CompletionWatch::called() {
    if (isPending()) --pending;
    if (++calls_ > 1) ADD_FAILURE() << "the completion given at " << place(where_) << " ran " << calls_ << " times";
    if (!MainQueue::shared().isMainThread())
        ADD_FAILURE() << "the completion given at " << place(where_) << " ran off the main thread";
}

int pendingCompletions() { return pending; }

std::string describePendingCompletions() {
    std::lock_guard lock(mutex);
    std::string text;
    for (const auto& watch : watches) {
        if (watch->isPending()) text += (text.empty() ? "" : ", ") + place(watch->where_);
    }
    return text;
}

void CompletionListener::OnTestEnd(const ::testing::TestInfo&) {
    pending = 0;
    std::vector<std::shared_ptr<CompletionWatch>> ended;
    {
        std::lock_guard lock(mutex);
        ended.swap(watches);
    }
    for (const auto& watch : ended) {
        if (watch->isPending()) {
            ADD_FAILURE() << "the completion given at " << place(watch->where_) << " never ran";
        }
    }
}

}  // namespace vexim::testing
