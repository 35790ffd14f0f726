#pragma once

#include <atomic>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include "VexIMLib/Foundation/MainQueue.h"
#include "VexIMLib/Store/VXIMMessageStore.h"
#include "VexIMLib/Store/internal/Database.h"
#include "VexIMLib/Store/internal/Files.h"
#include "VexIMLib/Store/internal/Messages.h"
#include "VexIMLib/Store/internal/Observers.h"
#include "VexIMLib/Store/internal/Worker.h"

namespace vexim::store {

/// How an operation uses the file.
enum class Mode {
    Read,
    Write,
    DurableWrite,  // completes only when a power failure cannot undo it
};

/// One operation. `perform` and `fail` run on the store's thread, `deliver` on the main queue.
class Operation : public Job {
public:
    explicit Operation(Mode asked) : mode(asked) {}
    const Mode mode;
    virtual void perform(Tables& tables) = 0;
    virtual void fail(ErrorPtr error) = 0;
    /// Returns a function that calls the completion. Run it once.
    virtual std::function<void()> delivery() = 0;
};

/// The open file and its thread. Waiting operations are written in one transaction, each of them
/// completely or not at all.
class Engine : public std::enable_shared_from_this<Engine> {
public:
    /// `opened` runs on the main queue. After an error the engine cannot be used.
    static void open(
        VXIMMessageStoreOptions options,
        std::function<void(std::shared_ptr<Engine> engine, std::string path, ErrorPtr error)>
            opened);

    /// Runs `work` (Tables& → T), then calls `completion` (T or nothing, error).
    template <class Completion, class Work>
    void run(Mode mode, Completion completion, Work work) {
        submit(std::make_unique<OperationOf<Completion, Work>>(mode, std::move(completion),
                                                               std::move(work)));
    }
    void close(VXIMBooleanCompletion completion);

    std::optional<VXIMStoreDamage> damage() const;
    std::string userId() const;
    Observers& observers() noexcept { return observers_; }

private:
    template <class Completion, class Work>
    class OperationOf final : public Operation {
    public:
        OperationOf(Mode asked, Completion completion, Work work)
            : Operation(asked),
              completion_(std::move(completion)),
              work_(std::move(work)) {}
        void perform(Tables& tables) override { result_.emplace(work_(tables)); }
        void fail(ErrorPtr error) override { error_ = std::move(error); }
        std::function<void()> delivery() override {
            if (!completion_) return {};
            if (error_ || !result_) {
                return [completion = std::move(completion_), error = std::move(error_)] {
                    completion({}, error);
                };
            }
            return [completion = std::move(completion_), result = std::move(*result_)]() mutable {
                completion(std::move(result), nullptr);
            };
        }

    private:
        Completion completion_;
        Work work_;
        std::optional<std::invoke_result_t<Work&, Tables&>> result_;
        ErrorPtr error_;
    };

    class Opening;
    class Closing;
    using Group = std::vector<Operation*>;

    explicit Engine(VXIMMessageStoreOptions options);
    void submit(std::unique_ptr<Operation> operation);
    static void deliver(Operation& operation);

    // On the store's thread.
    void work(Worker::Jobs jobs);
    /// Opens the file. If it is damaged, sets it aside first.
    void openFile();
    void openTables();
    void recordOwner();
    void closeFile() noexcept;
    void runGroup(const Group& group);
    /// Runs operations from `first` on, for a short time, and returns where it stopped. Delivers
    /// none of them.
    std::size_t runTransaction(const Group& group, std::size_t first, ErrorPtr& damage);
    void begin(Mode mode);
    void enforceRetentionSometimes();
    void setAside(const ErrorPtr& why);
    void refreshObservers();

    const VXIMMessageStoreOptions options_;
    std::shared_ptr<Worker> worker_;  // constant once started
    Observers observers_;

    // The store's thread only.
    Location location_;
    std::unique_ptr<FileLock> lock_;
    std::unique_ptr<Database> database_;
    std::unique_ptr<Tables> tables_;
    ErrorPtr broken_;  // why the file cannot be used any more
    bool isDurable_ = false;
    std::size_t groupsSinceRetention_ = 0;

    mutable Mutex mutex_;
    std::string userId_ VEXIM_GUARDED_BY(mutex_);
    std::optional<VXIMStoreDamage> damage_ VEXIM_GUARDED_BY(mutex_);
};

}  // namespace vexim::store
