#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <utility>
#include <vector>

#include "VexIMLib/C/internal/Request.h"
#include "VexIMLib/Store/VXIMConversations.h"

namespace vexim::c {

/// The stores of one client and their observations. Each has a number that is never reused. Main
/// thread.
class Stores final : public StoreSeat, public std::enable_shared_from_this<Stores> {
public:
    /// The stores of the request's client; made by the first call.
    static std::shared_ptr<Stores> of(Request& request);
    explicit Stores(std::shared_ptr<Mailbox> mailbox) : mailbox_(std::move(mailbox)) {}

    /// Opens the client's store and answers with it.
    void open(Request& request, VXIMConversationsOptions options);
    /// Opens another store and answers with it.
    void open(Request& request, VXIMMessageStoreOptions options);
    /// Closes the store, then answers.
    void close(Request& request);

    // These throw a `Refusal` if there is none.

    VXIMConversations& conversations() const;
    /// The store that the request's "store" names; otherwise the client's.
    VXIMMessageStore& store(const Request& request) const;
    VXIMStoreObservation& observation(const Request& request) const;

    /// The number of the client's open store; 0 if none.
    std::int64_t ownNumber() const noexcept { return own_; }

    // These answer with the number of the observation.

    void observeConversations(Request& request);
    void observeMessages(Request& request, VXIMConversationId id);
    void observeDamage(Request& request);
    void release(const Request& request);

private:
    struct Observation {
        std::int64_t store;
        std::shared_ptr<VXIMStoreObservation> held;
    };

    void open(const RequestPtr& self, const std::shared_ptr<VXIMClient>& client,
              const VXIMConversationsOptions& options);
    /// A completion that answers `request`. After the last close it starts the requests that wait
    /// to open.
    VXIMBooleanCompletion closing(Request& request);
    void closeBeforeOpen(Request& request);
    std::int64_t numberOf(const Request& request) const;
    std::int64_t keep(std::shared_ptr<VXIMMessageStore> store);
    template <class Observe>
    void observe(Request& request, const Observe& observe);

    const std::shared_ptr<Mailbox> mailbox_;
    std::shared_ptr<VXIMConversations> conversations_;  // nullptr: none was opened
    bool waitsForLogin_ = false;                        // opens at the first login
    // the number of its store, once that is open
    std::int64_t own_ = 0;
    std::map<std::int64_t, std::shared_ptr<VXIMMessageStore>> stores_;
    std::map<std::int64_t, Observation> observations_;
    std::int64_t last_ = 0;
    int closing_ = 0;
    std::vector<std::function<void()>> waiting_;  // to open
};

}  // namespace vexim::c
