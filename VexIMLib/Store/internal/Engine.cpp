#include "VexIMLib/Store/internal/Engine.h"

#include <chrono>
#include <exception>
#include <system_error>
#include <utility>

#include "VexIMLib/Store/internal/Housekeeping.h"
#include "VexIMLib/Store/internal/Rescue.h"
#include "VexIMLib/Store/internal/Schema.h"

namespace vexim::store {
namespace {

// How long to collect waiting operations into one transaction: too short for a person to notice.
constexpr std::chrono::milliseconds kGroupTime(30);
// How many messages retention removes after a group: this takes about as long.
constexpr std::int64_t kRetentionSlice = 500;

ErrorPtr closed() {
    return Error::withDescription(VXIMStoreErrorDomain, VXIMStoreErrorClosed,
                                  "The message store is closed.");
}

/// Runs `body` and returns its error, or nullptr.
template <class Body>
ErrorPtr errorOf(Body body) {
    try {
        body();
        return nullptr;
    } catch (const Failure& failure) {
        return failure.error;
    } catch (const std::exception& failure) {
        return Error::withDescription(VXIMStoreErrorDomain, VXIMStoreErrorFailed, failure.what());
    }
}

}  // namespace

/// The first job. The thread opens the file for it.
class Engine::Opening final : public Job {
public:
    explicit Opening(std::function<void(std::shared_ptr<Engine>, std::string, ErrorPtr)> opened)
        : opened_(std::move(opened)) {}
    void end(std::shared_ptr<Engine> engine, std::string path, ErrorPtr error) {
        MainQueue::shared().async([opened = std::move(opened_), engine = std::move(engine),
                                   path = std::move(path),
                                   error = std::move(error)] { opened(engine, path, error); });
    }

private:
    std::function<void(std::shared_ptr<Engine>, std::string, ErrorPtr)> opened_;
};

/// The last job. The thread closes the file for it.
class Engine::Closing final : public Job {
public:
    explicit Closing(VXIMBooleanCompletion completion) : completion_(std::move(completion)) {}
    void end() {
        if (completion_)
            MainQueue::shared().async(
                [completion = std::move(completion_)] { completion(true, nullptr); });
    }

private:
    VXIMBooleanCompletion completion_;
};

Engine::Engine(VXIMMessageStoreOptions options)
    : options_(std::move(options)),
      userId_(options_.userId) {}

void Engine::open(
    VXIMMessageStoreOptions options,
    std::function<void(std::shared_ptr<Engine> engine, std::string path, ErrorPtr error)> opened) {
    const std::shared_ptr<Engine> engine(new Engine(std::move(options)));
    auto opening = std::make_unique<Opening>(std::move(opened));
    try {
        engine->worker_ =
            Worker::start([engine](Worker::Jobs jobs) { engine->work(std::move(jobs)); });
    } catch (const std::system_error& failure) {
        return opening->end(
            nullptr, {},
            Error::withDescription(VXIMStoreErrorDomain, VXIMStoreErrorFailed, failure.what()));
    }
    std::unique_ptr<Job> first = std::move(opening);
    engine->worker_->add(first);
}

void Engine::close(VXIMBooleanCompletion completion) {
    std::unique_ptr<Job> last = std::make_unique<Closing>(std::move(completion));
    // Already closed, or closed by the process's exit: it is done, or will be.
    if (!worker_->finish(last)) static_cast<Closing&>(*last).end();
}

void Engine::submit(std::unique_ptr<Operation> operation) {
    std::unique_ptr<Job> job = std::move(operation);
    if (worker_->add(job)) return;
    auto& refused = static_cast<Operation&>(*job);
    refused.fail(closed());
    deliver(refused);
}

void Engine::deliver(Operation& operation) {
    if (auto delivery = operation.delivery()) MainQueue::shared().async(std::move(delivery));
}

std::optional<VXIMStoreDamage> Engine::damage() const {
    const MutexLock lock(mutex_);
    return damage_;
}

std::string Engine::userId() const {
    const MutexLock lock(mutex_);
    return userId_;
}

void Engine::work(Worker::Jobs jobs) {
    Group group;
    const auto finishGroup = [&] {
        if (!group.empty()) runGroup(group);
        group.clear();
    };
    for (const auto& job : jobs) {
        if (auto* const operation = dynamic_cast<Operation*>(job.get())) {
            group.push_back(operation);
        } else if (auto* const opening = dynamic_cast<Opening*>(job.get())) {
            const ErrorPtr error = errorOf([this] { openFile(); });
            if (error) {  // whoever hears of it may open again at once
                closeFile();
                lock_ = nullptr;
            }
            opening->end(error ? nullptr : shared_from_this(), location_.path, error);
            std::unique_ptr<Job> none;
            if (error) worker_->finish(none);
        } else if (auto* const closing = dynamic_cast<Closing*>(job.get())) {
            finishGroup();
            closeFile();
            lock_ = nullptr;
            closing->end();
        }
    }
    finishGroup();
}

void Engine::openFile() {
    location_ = locate(options_);
    if (options_.readOnly) {
        if (!isThere(location_.path))
            fail(VXIMStoreErrorCannotOpen, "There is no message store at this path.");
        return openTables();
    }
    const bool wasOpened = !location_.isInMemory() && isThere(location_.path + "-lock");
    if (!location_.isInMemory()) lock_ = std::make_unique<FileLock>(location_.path + "-lock");
    finishRescue(location_);
    const bool isEmptied = wasOpened && isEmpty(location_);
    prepareFile(location_);
    const ErrorPtr error = errorOf([&] {
        // SQLite would treat it as a new file, and remove its log.
        if (isEmptied) fail(VXIMStoreErrorDamaged, "The message store's file was truncated.");
        openTables();
    });
    if (!error) return;
    if (!isDamage(error)) throw Failure{error};
    setAside(error);
}

void Engine::openTables() {
    using enum Database::Access;
    database_ =
        std::make_unique<Database>(location_.path, options_.readOnly ? ReadOnly : ReadWrite);
    if (options_.readOnly) {
        requireSchema(*database_);
    } else {
        // Check this before writing anything: a newer file must not change.
        migrate(*database_);
        if (database_->isReadOnly())
            fail(VXIMStoreErrorReadOnly, "The message store cannot be written.");
        database_->execute("PRAGMA journal_mode = WAL");
        database_->execute("PRAGMA synchronous = NORMAL");
        // Most transactions rewrite an index page of each conversation. With a log of 16 MiB, four
        // times SQLite's default, more of that stays in the log before it goes to the file.
        database_->execute("PRAGMA wal_autocheckpoint = 4000");
        isDurable_ = false;
    }
    database_->execute("PRAGMA cache_size = -4096");  // KiB
    tables_ = std::make_unique<Tables>(*database_, userId(), location_.attachments());
    if (options_.readOnly) {
        recordOwner();
        return;
    }
    database_->execute("BEGIN IMMEDIATE");
    recordOwner();
    enforceRetention(*tables_, kRetentionSlice);
    database_->execute("COMMIT");
    for (const std::string& file : std::exchange(tables_->touched, {}).files) removeFile(file);
    removeOrphans(*tables_);
}

void Engine::recordOwner() {
    const std::string origin = originOf(options_.service);
    requireOwner(*database_, options_.userId, origin);
    const std::string user = meta(*database_, "user");
    if (!options_.readOnly && meta(*database_, "service").empty())
        setMeta(*database_, "service", origin);
    if (!options_.readOnly && user.empty()) setMeta(*database_, "user", options_.userId);
    if (!user.empty()) {
        tables_->userId = user;
        const MutexLock lock(mutex_);
        userId_ = user;
    }
}

void Engine::closeFile() noexcept {
    if (tables_ && location_.isInMemory()) removeOthers(tables_->filesFolder, {});
    tables_ = nullptr;
    database_ = nullptr;
}

void Engine::begin(Mode mode) {
    const bool isDurable = mode == Mode::DurableWrite;
    if (isDurable && !isDurable_) database_->execute("PRAGMA synchronous = FULL");
    if (!isDurable && isDurable_) database_->execute("PRAGMA synchronous = NORMAL");
    isDurable_ = isDurable;
    database_->execute("BEGIN IMMEDIATE");
}

void Engine::runGroup(const Group& group) {
    const auto end = [](Operation& operation, const ErrorPtr& error) {
        if (error) operation.fail(error);
        deliver(operation);
    };
    for (std::size_t first = 0; first < group.size();) {
        if (!tables_) {
            end(*group[first++], broken_ ? broken_ : closed());
            continue;
        }
        ErrorPtr damage;
        const std::size_t behind = runTransaction(group, first, damage);
        if (damage) {
            // Do this before reporting it: whoever learns of the damage finds the new file.
            broken_ = errorOf([&] { setAside(damage); });
            if (broken_) closeFile();
        } else {
            refreshObservers();
        }
        for (; first < behind; ++first) deliver(*group[first]);
    }
}

std::size_t Engine::runTransaction(const Group& group, std::size_t first, ErrorPtr& damage) {
    const auto until = std::chrono::steady_clock::now() + kGroupTime;
    Mode mode = Mode::Read;
    for (const Operation* const each : group) mode = std::max(mode, each->mode);
    const auto note = [&damage](const ErrorPtr& error) {
        if (isDamage(error)) damage = error;
    };
    std::size_t behind = first;
    bool isLost = false;  // the whole transaction
    bool hasWritten = false;
    while (behind < group.size() && !isLost && !damage &&
           std::chrono::steady_clock::now() < until) {
        Operation& operation = *group[behind++];
        const std::size_t files = tables_->touched.files.size();
        const ErrorPtr error = errorOf([&] {
            if (operation.mode == Mode::Read) return operation.perform(*tables_);
            if (options_.readOnly)
                fail(VXIMStoreErrorReadOnly, "The message store was opened read-only.");
            if (!database_->isInTransaction()) begin(mode);
            hasWritten = true;
            database_->execute("SAVEPOINT one");
            operation.perform(*tables_);
            database_->execute("RELEASE one");
        });
        if (!error) continue;
        note(error);
        operation.fail(error);
        if (operation.mode == Mode::Read) continue;
        tables_->forget();
        tables_->touched.files.resize(files);
        // SQLite rolls back by itself when a disk is full
        isLost = hasWritten && !database_->isInTransaction();
        if (database_->isInTransaction()) {
            const ErrorPtr stuck =
                errorOf([&] { database_->execute("ROLLBACK TO one; RELEASE one"); });
            isLost = stuck != nullptr;
        }
    }
    ErrorPtr lost;
    if (!isLost && hasWritten && database_->isInTransaction()) {
        lost = errorOf([&] {
            enforceRetentionSometimes();
            database_->execute("COMMIT");
        });
    } else if (isLost) {
        lost = Error::withDescription(VXIMStoreErrorDomain, VXIMStoreErrorDiskFull,
                                      "The disk is full: the message store cannot be written.");
    }
    if (lost) {
        note(lost);
        errorOf([&] {
            if (database_->isInTransaction()) database_->execute("ROLLBACK");
        });
        tables_->forget();
        tables_->touched = {};
        // None of them is in the file, although each succeeded alone. Reads may have seen their
        // data.
        for (std::size_t i = first; i < behind; ++i) group[i]->fail(lost);
    }
    for (const std::string& file : std::exchange(tables_->touched.files, {})) removeFile(file);
    return behind;
}

void Engine::enforceRetentionSometimes() {
    constexpr std::size_t kEvery = 64;
    if (++groupsSinceRetention_ < kEvery) return;
    groupsSinceRetention_ = 0;
    enforceRetention(*tables_, kRetentionSlice);
}

void Engine::setAside(const ErrorPtr& why) {
    closeFile();
    if (options_.readOnly || location_.isInMemory()) throw Failure{why};
    VXIMStoreDamage damage = rescue(location_, userId(), originOf(options_.service));
    openTables();
    {
        const MutexLock lock(mutex_);
        damage_ = damage;
    }
    observers_.tell(damage);
    observers_.refresh(*tables_, {}, true);
}

void Engine::refreshObservers() {
    const Touched touched = std::exchange(tables_->touched, {});
    // If it cannot be read now, it is reported with the next change.
    errorOf([&] { observers_.refresh(*tables_, touched, false); });
}

}  // namespace vexim::store
