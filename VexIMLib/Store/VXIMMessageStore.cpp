#include "VexIMLib/Store/VXIMMessageStore.h"

#include <utility>

#include "VexIMLib/Foundation/MainQueue.h"

namespace {

/// Everything ends so until the engine is there.
template <class Completion>
void refuse(Completion completion) {
    if (!completion) return;
    vexim::MainQueue::shared().async([completion = std::move(completion)] {
        completion({}, vexim::Error::withDescription(VXIMStoreErrorDomain, VXIMStoreErrorFailed, "The store is not built yet."));
    });
}

}  // namespace

namespace vexim::store {
class Engine {};
}  // namespace vexim::store

VXIMStoreObservation::VXIMStoreObservation(std::weak_ptr<vexim::store::Engine> engine, std::int64_t number)
    : engine_(std::move(engine)),
      number_(number) {}
VXIMStoreObservation::~VXIMStoreObservation() = default;
void VXIMStoreObservation::setLimit(std::int32_t) {}

VXIMMessageStore::VXIMMessageStore(std::shared_ptr<vexim::store::Engine> engine, const VXIMMessageStoreOptions& options,
                                   std::string path)
    : engine_(std::move(engine)),
      path_(std::move(path)),
      userId_(options.userId),
      service_(options.service) {}
VXIMMessageStore::~VXIMMessageStore() = default;
void VXIMMessageStore::open(VXIMMessageStoreOptions, VXIMMessageStoreCompletion completion) { refuse(std::move(completion)); }
void VXIMMessageStore::close(VXIMBooleanCompletion completion) { refuse(std::move(completion)); }
std::optional<VXIMStoreDamage> VXIMMessageStore::damage() const { return std::nullopt; }
void VXIMMessageStore::conversations(VXIMConversationsCompletion completion) const { refuse(std::move(completion)); }
void VXIMMessageStore::conversation(VXIMConversationId, VXIMConversationCompletion completion) const {
    refuse(std::move(completion));
}
void VXIMMessageStore::messagesBefore(VXIMConversationId, std::optional<VXIMStorePosition>, std::int32_t,
                                      VXIMStoredMessagesCompletion completion) const {
    refuse(std::move(completion));
}
void VXIMMessageStore::messagesAfter(VXIMConversationId, std::optional<VXIMStorePosition>, std::int32_t,
                                     VXIMStoredMessagesCompletion completion) const {
    refuse(std::move(completion));
}
void VXIMMessageStore::message(std::int64_t, VXIMStoredMessageCompletion completion) const { refuse(std::move(completion)); }
void VXIMMessageStore::search(VXIMMessageSearch, VXIMStoredMessagesCompletion completion) const { refuse(std::move(completion)); }
void VXIMMessageStore::gaps(VXIMConversationId, VXIMStoredGapsCompletion completion) const { refuse(std::move(completion)); }
void VXIMMessageStore::markRead(VXIMConversationId, std::optional<VXIMStorePosition>, VXIMBooleanCompletion completion) {
    refuse(std::move(completion));
}
void VXIMMessageStore::setDraft(VXIMConversationId, std::string, VXIMBooleanCompletion completion) {
    refuse(std::move(completion));
}
void VXIMMessageStore::removeConversation(VXIMConversationId, VXIMBooleanCompletion completion) { refuse(std::move(completion)); }
void VXIMMessageStore::setRetention(VXIMRetention, VXIMCountCompletion completion) { refuse(std::move(completion)); }
void VXIMMessageStore::exportJSONLines(std::string, std::optional<VXIMConversationId>, VXIMCountCompletion completion) const {
    refuse(std::move(completion));
}
std::shared_ptr<VXIMStoreObservation> VXIMMessageStore::observeConversations(std::int32_t, VXIMConversationsObserver) {
    return nullptr;
}
std::shared_ptr<VXIMStoreObservation> VXIMMessageStore::observeMessages(VXIMConversationId, std::int32_t, VXIMMessagesObserver) {
    return nullptr;
}
std::shared_ptr<VXIMStoreObservation> VXIMMessageStore::observeDamage(VXIMStoreDamageObserver) { return nullptr; }
