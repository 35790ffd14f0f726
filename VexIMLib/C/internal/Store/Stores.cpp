#include "VexIMLib/C/internal/Store/Stores.h"

#include <cstddef>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "VexIMLib/C/internal/Store/StoreRecords.h"

namespace vexim::c {

namespace {

[[noreturn]] void refuseStore(std::string description) {
    throw Refusal({InterfaceError::NoSuchStore, std::move(description)});
}

template <class T>
constexpr std::string_view kItemName = "message";
template <>
constexpr std::string_view kItemName<VXIMConversation> = "conversation";

/// The entries at these positions, or all.
template <class T>
void appendItems(std::string& text, std::string_view name, const VXIMListChange<T>& change,
                 const std::vector<std::size_t>& positions, bool all = false) {
    text.append(",\"").append(name).append("\":[");
    const std::size_t count = all ? change.list.size() : positions.size();
    for (std::size_t i = 0; i < count; ++i) {
        const std::size_t position = all ? i : positions[i];
        text.append(i == 0 ? "" : ",").append(R"({"position":)").append(std::to_string(position));
        append(text, kItemName<T>, Stored{change.list[position]});
        text += '}';
    }
    text += ']';
}

/// Reports changes of a list. If an event was dropped because too much is waiting, the next one has
/// the whole list, like the first one.
template <class T>
auto listTeller(std::string_view name, std::int64_t observation, std::shared_ptr<Mailbox> mailbox) {
    return [name, observation, mailbox = std::move(mailbox),
            whole = true](const VXIMListChange<T>& change) mutable {
        std::string text = begunEvent(name);
        append(text, "observation", observation);
        append(text, "whole", whole);
        append(text, "count", static_cast<std::int64_t>(change.list.size()));
        text += ",\"removed\":[";
        if (!whole) {
            for (std::size_t i = 0; i < change.removed.size(); ++i) {
                text.append(i == 0 ? "" : ",").append(std::to_string(change.removed[i]));
            }
        }
        text += ']';
        appendItems(text, "inserted", change, change.inserted, whole);
        appendItems(text, "changed", change, whole ? std::vector<std::size_t>() : change.changed);
        whole = !mailbox->event(std::move(text += '}'));
    };
}

}  // namespace

std::shared_ptr<Stores> Stores::of(Request& request) {
    auto& seat = request.stores();
    if (!seat) seat = std::make_shared<Stores>(request.sharedMailbox());
    return std::static_pointer_cast<Stores>(seat);  // nobody else makes one
}

void Stores::open(Request& request, VXIMConversationsOptions options) {
    auto begin = [this, self = request.shared_from_this(), client = request.sharedClient(),
                  options = std::move(options)] {
        if (self->mailbox().isOpen(self->id())) open(self, client, options);
    };
    // The file may be locked by us until the previous store is closed.
    if (closing_ > 0) {
        waiting_.emplace_back(std::move(begin));
    } else {
        begin();
    }
}

void Stores::open(const RequestPtr& self, const std::shared_ptr<VXIMClient>& client,
                  const VXIMConversationsOptions& options) {
    if (conversations_) {
        return self->fail(InterfaceError::WrongArgument,
                          "The client already has a store or is opening one. Close it first.");
    }
    waitsForLogin_ = options.userId.empty();
    conversations_ = VXIMConversations::conversationsWithClient(client, options);
    conversations_->setCaughtUpHandler([mailbox = mailbox_](const VXIMCaughtUp& caughtUp) {
        std::string text = begunEvent("conversationsDidCatchUp");
        append(text, "missedCount", caughtUp.missedCount);
        append(text, "gapCount", caughtUp.gapCount);
        if (caughtUp.error) append(text, "error", *caughtUp.error);
        mailbox->event(std::move(text += '}'));
    });
    conversations_->setTroubleHandler([mailbox = mailbox_](const ErrorPtr& error) {
        std::string text = begunEvent("conversationsDidMeetTrouble");
        append(text, "error", *error);
        mailbox->event(std::move(text += '}'));
    });
    conversations_->open([weak = weak_from_this(), held = std::weak_ptr(conversations_), self](
                             bool opened, const ErrorPtr& error) {
        const auto stores = weak.lock();
        const auto conversations = held.lock();
        // closed meanwhile
        if (!stores || !conversations || stores->conversations_ != conversations) return;
        if (!opened) {
            stores->conversations_ = nullptr;
            return self->fail(errorBody(*error));
        }
        stores->own_ = stores->keep(conversations->store());
        std::string result;
        writeStore(result, stores->own_, *conversations->store());
        self->succeed(result);
    });
}

void Stores::open(Request& request, VXIMMessageStoreOptions options) {
    VXIMMessageStore::open(
        std::move(options),
        [weak = weak_from_this(), self = request.shared_from_this()](
            const std::shared_ptr<VXIMMessageStore>& store, const ErrorPtr& error) {
            if (!store) return self->fail(errorBody(*error));
            const auto stores = weak.lock();
            // A caller that stopped waiting does not know the number.
            if (!stores || !self->mailbox().isOpen(self->id())) return;
            std::string result;
            writeStore(result, stores->keep(store), *store);
            self->succeed(result);
        });
}

void Stores::close(Request& request) {
    const bool isOwn =
        request.value("store").isNil() || request.value("store").longLongValue() == own_;
    if (isOwn && conversations_ && own_ == 0) return closeBeforeOpen(request);
    const std::int64_t number = numberOf(request);
    const auto closed = stores_.extract(number);
    std::erase_if(observations_,
                  [number](const auto& each) { return each.second.store == number; });
    if (isOwn) {
        conversations_ = nullptr;
        own_ = 0;
    }
    closed.mapped()->close(closing(request));
}

VXIMBooleanCompletion Stores::closing(Request& request) {
    ++closing_;
    return [weak = weak_from_this(), done = request.done()](bool closed, const ErrorPtr& error) {
        done(closed, error);
        const auto stores = weak.lock();
        if (!stores || --stores->closing_ > 0) return;
        for (const auto& begin : std::exchange(stores->waiting_, {})) begin();
    };
}

void Stores::closeBeforeOpen(Request& request) {
    const auto conversations = std::exchange(conversations_, nullptr);
    if (waitsForLogin_) return request.succeed("true");
    // We hold the file until it was opened and closed. Answer then, because the caller may open it
    // again.
    conversations->open([conversations, done = closing(request)](bool opened, const ErrorPtr&) {
        if (opened) return conversations->store()->close(done);
        done(true, nullptr);
    });
}

VXIMConversations& Stores::conversations() const {
    if (!conversations_)
        refuseStore("The client has no store. Open one with VXIMConversations.open.");
    return *conversations_;
}

std::int64_t Stores::numberOf(const Request& request) const {
    const Value& given = request.value("store");
    const std::int64_t number = given.isNil() ? own_ : given.longLongValue();
    if (stores_.contains(number)) return number;
    refuseStore(
        given.isNil()
            ? "The client has no open store. Open one with VXIMConversations.open."
            : "There is no store with this number. It was closed, or another client opened it.");
}

VXIMMessageStore& Stores::store(const Request& request) const {
    return *stores_.at(numberOf(request));
}

std::int64_t Stores::keep(std::shared_ptr<VXIMMessageStore> store) {
    stores_.emplace(++last_, std::move(store));
    return last_;
}

VXIMStoreObservation& Stores::observation(const Request& request) const {
    const auto found = observations_.find(request.value("observation").longLongValue());
    if (found == observations_.end())
        refuseStore(
            "There is no observation with this number. It was released, or its store was closed.");
    return *found->second.held;
}

template <class Observe>
void Stores::observe(Request& request, const Observe& observe) {
    const std::int64_t store = numberOf(request);
    const std::int64_t number = ++last_;
    observations_.emplace(number, Observation{store, observe(*stores_.at(store), number)});
    request.succeed(std::to_string(number));
}

void Stores::observeConversations(Request& request) {
    observe(request, [&](VXIMMessageStore& store, std::int64_t number) {
        return store.observeConversations(
            request.int32("limit", 0),
            listTeller<VXIMConversation>("observedConversationsDidChange", number, mailbox_));
    });
}

void Stores::observeMessages(Request& request, VXIMConversationId id) {
    observe(request, [&](VXIMMessageStore& store, std::int64_t number) {
        return store.observeMessages(
            std::move(id), request.int32("limit", 0),
            listTeller<VXIMStoredMessage>("observedMessagesDidChange", number, mailbox_));
    });
}

void Stores::observeDamage(Request& request) {
    observe(request, [&](VXIMMessageStore& store, std::int64_t number) {
        return store.observeDamage([mailbox = mailbox_, number](const VXIMStoreDamage& damage) {
            std::string text = begunEvent("observedStoreWasDamaged");
            append(text, "observation", number);
            append(text, "damage", Stored{damage});
            mailbox->event(std::move(text += '}'));
        });
    });
}

void Stores::release(const Request& request) {
    observation(request);
    observations_.erase(request.value("observation").longLongValue());
}

}  // namespace vexim::c
