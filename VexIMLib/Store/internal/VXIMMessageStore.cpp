#include "VexIMLib/Store/VXIMMessageStore.h"

#include <limits>
#include <utility>

#include "VexIMLib/Store/internal/Engine.h"
#include "VexIMLib/Store/internal/Export.h"
#include "VexIMLib/Store/internal/Housekeeping.h"
#include "VexIMLib/Store/internal/Reading.h"

using vexim::store::Mode;
using vexim::store::Tables;

void VXIMMessageStore::open(VXIMMessageStoreOptions options,
                            VXIMMessageStoreCompletion completion) {
    const std::string service = options.service;
    vexim::store::Engine::open(std::move(options), [service, completion = std::move(completion)](
                                                       std::shared_ptr<vexim::store::Engine> engine,
                                                       std::string path, vexim::ErrorPtr error) {
        const std::shared_ptr<VXIMMessageStore> store(
            engine ? new VXIMMessageStore(std::move(engine), std::move(path), service) : nullptr);
        if (completion) completion(store, std::move(error));
    });
}

VXIMMessageStore::VXIMMessageStore(std::shared_ptr<vexim::store::Engine> engine, std::string path,
                                   std::string service)
    : engine_(std::move(engine)),
      path_(std::move(path)),
      service_(std::move(service)) {}

VXIMMessageStore::~VXIMMessageStore() { engine_->close({}); }

void VXIMMessageStore::close(VXIMBooleanCompletion completion) {
    engine_->close(std::move(completion));
}

std::string VXIMMessageStore::userId() const { return engine_->userId(); }

std::optional<VXIMStoreDamage> VXIMMessageStore::damage() const { return engine_->damage(); }

void VXIMMessageStore::conversations(VXIMConversationsCompletion completion) const {
    engine_->run(Mode::Read, std::move(completion), [](Tables& tables) {
        std::vector<VXIMConversation> conversations;
        for (const Tables::Conversation* const each : tables.all())
            conversations.push_back(tables.conversation(*each));
        return conversations;
    });
}

void VXIMMessageStore::conversation(VXIMConversationId id,
                                    VXIMConversationCompletion completion) const {
    engine_->run(Mode::Read, std::move(completion),
                 [id = std::move(id)](Tables& tables) -> std::optional<VXIMConversation> {
                     const Tables::Conversation* const found = tables.find(id);
                     if (!found) return std::nullopt;
                     return tables.conversation(*found);
                 });
}

void VXIMMessageStore::messagesBefore(VXIMConversationId id,
                                      std::optional<VXIMStorePosition> position, std::int32_t limit,
                                      VXIMStoredMessagesCompletion completion) const {
    engine_->run(Mode::Read, std::move(completion),
                 [id = std::move(id), position, limit](Tables& tables) {
                     return vexim::store::messagesBefore(tables, id, position, limit);
                 });
}

void VXIMMessageStore::messagesAfter(VXIMConversationId id,
                                     std::optional<VXIMStorePosition> position, std::int32_t limit,
                                     VXIMStoredMessagesCompletion completion) const {
    engine_->run(Mode::Read, std::move(completion),
                 [id = std::move(id), position, limit](Tables& tables) {
                     return vexim::store::messagesAfter(tables, id, position, limit);
                 });
}

void VXIMMessageStore::message(std::int64_t localId, VXIMStoredMessageCompletion completion) const {
    engine_->run(Mode::Read, std::move(completion),
                 [localId](Tables& tables) { return tables.message(localId); });
}

void VXIMMessageStore::search(VXIMMessageSearch search,
                              VXIMStoredMessagesCompletion completion) const {
    engine_->run(Mode::Read, std::move(completion), [search = std::move(search)](Tables& tables) {
        return vexim::store::search(tables, search);
    });
}

void VXIMMessageStore::gaps(VXIMConversationId id, VXIMStoredGapsCompletion completion) const {
    engine_->run(Mode::Read, std::move(completion),
                 [id = std::move(id)](Tables& tables) { return vexim::store::gaps(tables, id); });
}

void VXIMMessageStore::markRead(VXIMConversationId id, std::optional<VXIMStorePosition> upTo,
                                VXIMBooleanCompletion completion) {
    engine_->run(Mode::Write, std::move(completion), [id = std::move(id), upTo](Tables& tables) {
        vexim::store::markRead(tables, id, upTo);
        return true;
    });
}

void VXIMMessageStore::setDraft(VXIMConversationId id, std::string draft,
                                VXIMBooleanCompletion completion) {
    engine_->run(Mode::Write, std::move(completion),
                 [id = std::move(id), draft = std::move(draft)](Tables& tables) {
                     vexim::store::setDraft(tables, id, draft);
                     return true;
                 });
}

void VXIMMessageStore::removeConversation(VXIMConversationId id, VXIMBooleanCompletion completion) {
    engine_->run(Mode::Write, std::move(completion), [id = std::move(id)](Tables& tables) {
        vexim::store::removeConversation(tables, id);
        return true;
    });
}

void VXIMMessageStore::setRetention(VXIMRetention retention, VXIMCountCompletion completion) {
    engine_->run(Mode::Write, std::move(completion), [retention](Tables& tables) {
        vexim::store::setRetention(tables, retention);
        return vexim::store::enforceRetention(tables, std::numeric_limits<std::int64_t>::max());
    });
}

void VXIMMessageStore::exportJSONLines(std::string path,
                                       std::optional<VXIMConversationId> conversation,
                                       VXIMCountCompletion completion) const {
    vexim::store::exportLines(engine_, std::move(path), std::move(conversation),
                              std::move(completion));
}

/// Holds the observer; the engine holds it weakly.
struct VXIMStoreObservation::Impl {
    std::shared_ptr<vexim::store::Listener> listener = std::make_shared<vexim::store::Listener>();
    std::weak_ptr<vexim::store::Engine> engine;

    void look(vexim::store::Observers::Kind kind, VXIMConversationId conversation) {
        const auto running = engine.lock();
        if (!running) return;
        running->run(Mode::Read, VXIMBooleanCompletion(),
                     [engine = running.get(), kind, heard = std::weak_ptr(listener),
                      limit = listener->limit, conversation = std::move(conversation)](Tables&) {
                         // The list is reported when the group has ended.
                         engine->observers().add({.kind = kind,
                                                  .listener = heard,
                                                  .limit = limit,
                                                  .conversation = conversation});
                         return true;
                     });
    }
};

VXIMStoreObservation::VXIMStoreObservation() : impl_(std::make_unique<Impl>()) {}
VXIMStoreObservation::~VXIMStoreObservation() = default;

void VXIMStoreObservation::setLimit(std::int32_t limit) {
    *impl_->listener->limit = limit;
    if (const auto engine = impl_->engine.lock()) {
        // the lists are checked after it
        engine->run(Mode::Read, VXIMBooleanCompletion(), [](Tables&) { return true; });
    }
}

std::shared_ptr<VXIMStoreObservation> VXIMMessageStore::observeConversations(
    std::int32_t limit, VXIMConversationsObserver observer) {
    std::shared_ptr<VXIMStoreObservation> observation(new VXIMStoreObservation);
    observation->impl_->listener->observer = std::move(observer);
    *observation->impl_->listener->limit = limit;
    observation->impl_->engine = engine_;
    observation->impl_->look(vexim::store::Observers::Kind::Conversations, {});
    return observation;
}

std::shared_ptr<VXIMStoreObservation> VXIMMessageStore::observeMessages(
    VXIMConversationId id, std::int32_t limit, VXIMMessagesObserver observer) {
    std::shared_ptr<VXIMStoreObservation> observation(new VXIMStoreObservation);
    observation->impl_->listener->observer = std::move(observer);
    *observation->impl_->listener->limit = limit;
    observation->impl_->engine = engine_;
    observation->impl_->look(vexim::store::Observers::Kind::Messages, std::move(id));
    return observation;
}

std::shared_ptr<VXIMStoreObservation> VXIMMessageStore::observeDamage(
    VXIMStoreDamageObserver observer) {
    std::shared_ptr<VXIMStoreObservation> observation(new VXIMStoreObservation);
    observation->impl_->listener->observer = std::move(observer);
    observation->impl_->engine = engine_;
    observation->impl_->look(vexim::store::Observers::Kind::Damage, {});
    return observation;
}
