#include "support/Completions.h"

#include <mutex>
#include <unordered_set>

#include "VexIMLib/Foundation/MainQueue.h"

namespace vexim::testing {

namespace {

std::mutex mutex;
// The completions of the running test that must run and have not run yet. The others are removed,
// so that counting a hundred thousand completions takes no memory.
std::unordered_set<std::shared_ptr<CompletionWatch>> pending;

std::string place(std::source_location where) {
    return std::string(where.file_name()) + ":" + std::to_string(where.line());
}

}  // namespace

std::shared_ptr<CompletionWatch> CompletionWatch::make(Runs runs, std::source_location where) {
    std::shared_ptr<CompletionWatch> watch(new CompletionWatch(where));
    std::lock_guard lock(mutex);
    if (runs == Runs::ExactlyOnce) pending.insert(watch);
    return watch;
}

void CompletionWatch::called() {
    {
        std::lock_guard lock(mutex);
        pending.erase(shared_from_this());
    }
    if (++calls_ > 1)
        ADD_FAILURE() << "the completion given at " << place(where_) << " ran " << calls_
                      << " times";
    if (!MainQueue::shared().isMainThread())
        ADD_FAILURE() << "the completion given at " << place(where_) << " ran off the main thread";
}

std::size_t pendingCompletions() {
    std::lock_guard lock(mutex);
    return pending.size();
}

std::string describePendingCompletions() {
    std::lock_guard lock(mutex);
    std::string text;
    for (const auto& watch : pending) text += (text.empty() ? "" : ", ") + place(watch->where_);
    return text;
}

void CompletionListener::OnTestEnd(const ::testing::TestInfo&) {
    std::unordered_set<std::shared_ptr<CompletionWatch>> never;
    {
        std::lock_guard lock(mutex);
        never.swap(pending);
    }
    for (const auto& watch : never) {
        ADD_FAILURE() << "the completion given at " << place(watch->where_) << " never ran";
    }
}

}  // namespace vexim::testing
