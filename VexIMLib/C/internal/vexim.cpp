#include "VexIMLib/C/vexim.h"

#include <cstddef>
#include <exception>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <vector>

#include "VexIMLib/C/internal/MainQueueThread.h"
#include "VexIMLib/C/internal/Operations.h"
#include "VexIMLib/C/internal/Session.h"
#include "VexIMLib/Foundation/JSON.h"
#include "VexIMLib/internal/Foundation/Threads/ThreadSafety.h"

namespace vexim::c {

namespace {

/// The clients by handle. The remaining answers of freed clients are kept for a while.
class Handles {
public:
    static Handles& shared() {
        // other threads may still use it while the process exits
        static Handles& handles = *new Handles;
        return handles;
    }

    vexim_client add(std::shared_ptr<Session> session) {
        const MutexLock lock(mutex_);
        sessions_.emplace(++last_, std::move(session));
        return last_;
    }
    std::shared_ptr<Session> session(vexim_client client) const {
        const MutexLock lock(mutex_);
        const auto found = sessions_.find(client);
        return found == sessions_.end() ? nullptr : found->second;
    }
    std::shared_ptr<Mailbox> mailbox(vexim_client client) const {
        const MutexLock lock(mutex_);
        if (const auto found = sessions_.find(client); found != sessions_.end())
            return found->second->mailbox();
        const auto left = left_.find(client);
        return left == left_.end() ? nullptr : left->second.mailbox;
    }
    /// Removes the client and returns it; nullptr if there is none. Its mailbox stays for the
    /// answers.
    std::shared_ptr<Session> remove(vexim_client client) {
        const MutexLock lock(mutex_);
        const auto found = sessions_.find(client);
        if (found == sessions_.end()) return nullptr;
        auto session = std::move(found->second);
        sessions_.erase(found);
        left_[client].mailbox = session->mailbox();
        return session;
    }
    /// Notes how many bytes of answers a freed client has left. Above the limits, the answers of
    /// the clients that were made first are dropped.
    void keep(vexim_client client, std::size_t bytes) {
        std::vector<Left> dropped;  // destroyed without the lock
        const MutexLock lock(mutex_);
        if (const auto found = left_.find(client); found != left_.end()) {
            found->second.bytes = bytes;
            leftBytes_ += bytes;
        }
        while (left_.size() > kMostLeft || (leftBytes_ > kMostLeftBytes && left_.size() > 1)) {
            dropped.push_back(take(left_.begin()));
        }
    }
    /// Call it when nothing is left of a freed client.
    void forget(vexim_client client) {
        Left dropped;
        const MutexLock lock(mutex_);
        if (const auto found = left_.find(client); found != left_.end()) dropped = take(found);
    }

private:
    struct Left {
        std::shared_ptr<Mailbox> mailbox;
        std::size_t bytes = 0;
    };
    static constexpr std::size_t kMostLeft = 256;
    static constexpr std::size_t kMostLeftBytes = std::size_t{64} * 1024 * 1024;

    Left take(std::map<vexim_client, Left>::iterator found) VEXIM_REQUIRES(mutex_) {
        Left taken = std::move(found->second);
        leftBytes_ -= taken.bytes;
        left_.erase(found);
        return taken;
    }

    mutable Mutex mutex_;
    vexim_client last_ VEXIM_GUARDED_BY(mutex_) = 0;
    std::unordered_map<vexim_client, std::shared_ptr<Session>> sessions_ VEXIM_GUARDED_BY(mutex_);
    std::map<vexim_client, Left> left_ VEXIM_GUARDED_BY(mutex_);  // the oldest first
    std::size_t leftBytes_ VEXIM_GUARDED_BY(mutex_) = 0;
};

std::string_view textOr(const char* text, std::string_view otherwise) {
    return text ? std::string_view(text) : otherwise;
}

std::string execute(vexim_client client, std::string_view text) {
    std::string extra;
    const auto failure = [&extra](const Problem& problem) {
        return R"({"@type":"error","@extra":)" + (extra.empty() ? "null" : extra) + R"(,"error":)" +
               errorBody(problem) + "}";
    };
    const auto read = parseJSON(text);
    const auto* arguments = read.value.asDictionary();
    if (!arguments) {
        return failure({InterfaceError::NotAnObject,
                        "The request is not a JSON object" +
                            (read.error ? ": " + read.error->localizedDescription() : ".")});
    }
    if (const Value& given = arguments->get("@extra"); !given.isNil())
        appendJSON(extra, given, JSONFragments::Allow);
    const auto name = arguments->get("@op").asStringView();
    const auto operation = name ? findImmediateOperation(*name) : Found<ImmediateOperation>();
    if (!operation.row) {
        if (!name || !findOperation(*name).row) return failure(unknownOperation(name));
        return failure({InterfaceError::UnknownOperation, "Use vexim_send for this operation."});
    }
    if (const auto problem = findProblem(*operation.parameters, *arguments))
        return failure(*problem);
    const auto session = Handles::shared().session(client);
    const auto held = session ? session->client() : nullptr;
    const Needs needs = operation.row->needs;
    if ((needs != Needs::Nothing && !session) || (needs == Needs::Client && !held)) {
        return failure({InterfaceError::ClientGone, "There is no such client."});
    }
    std::string result;
    const handlers::Asker asker{session ? session->mailbox().get() : nullptr, held.get()};
    if (const auto problem = operation.row->run(asker, *arguments, result))
        return failure(*problem);
    return R"({"@type":"answer","@extra":)" + (extra.empty() ? "null" : extra) + R"(,"result":)" +
           result + "}";
}

// The text last returned to this thread.
thread_local std::string received;
thread_local std::string executed;

}  // namespace
}  // namespace vexim::c

using namespace vexim::c;

// No exception may pass through C. The only one that can still come here means that memory ran out;
// the call then does nothing.

vexim_client vexim_create(const char* configuration) try {
    if (isForkedChild() || !startMainQueueThread()) return 0;
    return Handles::shared().add(Session::make(textOr(configuration, "{}")));
} catch (const std::exception&) {
    return 0;
}

void vexim_send(vexim_client client, const char* request) try {
    if (isForkedChild()) return;
    if (const auto session = Handles::shared().session(client)) session->send(textOr(request, ""));
} catch (const std::exception&) {
}

const char* vexim_receive(vexim_client client, double seconds) try {
    if (isForkedChild()) return nullptr;
    const auto mailbox = Handles::shared().mailbox(client);
    received.clear();
    if (mailbox && mailbox->receive(seconds, received)) return received.c_str();
    received.shrink_to_fit();
    if (mailbox && mailbox->isSpent()) Handles::shared().forget(client);
    return nullptr;
} catch (const std::exception&) {
    return nullptr;
}

const char* vexim_execute(vexim_client client, const char* request) try {
    executed = execute(isForkedChild() ? 0 : client, textOr(request, ""));
    return executed.c_str();
} catch (const std::exception&) {
    return nullptr;
}

void vexim_free(vexim_client client) try {
    if (isForkedChild()) return;
    const auto session = Handles::shared().remove(client);
    if (!session) return;
    session->end();
    const Mailbox& mailbox = *session->mailbox();
    if (mailbox.isSpent()) {
        Handles::shared().forget(client);
    } else {
        Handles::shared().keep(client, mailbox.size());
    }
} catch (const std::exception&) {
}
