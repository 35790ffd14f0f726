// The part of `Tables` that is about conversations.
#include <algorithm>

#include "VexIMLib/Store/internal/Messages.h"

namespace vexim::store {
namespace {

constexpr const char* kById =
    "SELECT id, kind, name, last_at, last_id, unread, draft, known_until FROM conversation WHERE kind = ?1 AND name = ?2";
constexpr const char* kByRow =
    "SELECT id, kind, name, last_at, last_id, unread, draft, known_until FROM conversation WHERE id = ?1";
constexpr const char* kAll =
    "SELECT id, kind, name, last_at, last_id, unread, draft, known_until FROM conversation";

Tables::Conversation read(const Statement& row) {
    return {.row = row.integer(0),
            .id = {static_cast<VXIMConversationKind>(row.integer(1)), std::string(row.text(2))},
            .last = {row.integer(3), row.integer(4)},
            .unread = row.integer(5),
            .draft = std::string(row.text(6)),
            .knownUntil = row.integer(7)};
}

}  // namespace

Tables::Conversation& Tables::remember(Conversation conversation) {
    byRow_[conversation.row] = conversation.id;
    return known_.insert_or_assign(conversation.id, conversation).first->second;
}

Tables::Conversation* Tables::find(const VXIMConversationId& id) {
    if (const auto known = known_.find(id); known != known_.end()) return &known->second;
    Statement statement = database.prepare(kById);
    if (!statement.bind(1, std::int64_t{id.kind}).bind(2, id.id).step()) return nullptr;
    return &remember(read(statement));
}

Tables::Conversation& Tables::findOrMake(const VXIMConversationId& id) {
    if (Conversation* const found = find(id)) return *found;
    database.prepare("INSERT INTO conversation(kind, name) VALUES(?1, ?2)")
        .bind(1, std::int64_t{id.kind})
        .bind(2, id.id)
        .run();
    Conversation* const made = find(id);
    touched.list = true;
    return *made;
}

Tables::Conversation& Tables::ofRow(std::int64_t row) {
    if (const auto known = byRow_.find(row); known != byRow_.end()) return known_.at(known->second);
    Statement statement = database.prepare(kByRow);
    if (!statement.bind(1, row).step())
        fail(VXIMStoreErrorDamaged, "A stored message has no conversation.");
    return remember(read(statement));
}

std::vector<Tables::Conversation*> Tables::all() {
    if (!areAllKnown_) {
        std::vector<Conversation> found;
        {
            Statement statement = database.prepare(kAll);
            while (statement.step()) found.push_back(read(statement));
        }
        for (auto& each : found) {
            if (!known_.contains(each.id)) remember(std::move(each));
        }
        areAllKnown_ = true;
    }
    std::vector<Conversation*> answer;
    answer.reserve(known_.size());
    for (auto& [id, conversation] : known_) answer.push_back(&conversation);
    std::ranges::sort(answer, [](const Conversation* a, const Conversation* b) {
        return std::pair(b->last, b->row) < std::pair(a->last, a->row);
    });
    return answer;
}

void Tables::save(const Conversation& conversation) {
    database
        .prepare(
            "UPDATE conversation SET last_at = ?2, last_id = ?3, unread = ?4, draft = ?5, known_until = ?6 WHERE id = ?1")
        .bind(1, conversation.row)
        .bind(2, conversation.last.sentAtMillis)
        .bind(3, conversation.last.localId)
        .bind(4, conversation.unread)
        .bind(5, conversation.draft)
        .bind(6, conversation.knownUntil)
        .run();
    touched.conversations.insert(conversation.row);
}

void Tables::repair(Conversation& conversation) {
    conversation.last = {};
    Statement last = database.prepare(
        "SELECT sent_at, id FROM message WHERE conversation = ?1 ORDER BY sent_at DESC, id DESC LIMIT 1");
    if (last.bind(1, conversation.row).step())
        conversation.last = {last.integer(0), last.integer(1)};
    if (conversation.unread > 0) {
        Statement incoming = database.prepare(
            "SELECT count(*) FROM (SELECT 1 FROM message WHERE conversation = ?1 AND direction = 0 LIMIT ?2)");
        incoming.bind(1, conversation.row).bind(2, conversation.unread).step();
        conversation.unread = incoming.integer(0);
    }
    save(conversation);
}

void Tables::forget() {
    known_.clear();
    byRow_.clear();
    nextInHour_.clear();
    drift_.reset();
    areAllKnown_ = false;
}

VXIMConversation Tables::conversation(const Conversation& conversation) {
    VXIMConversation answer{conversation.id, std::nullopt, conversation.unread, conversation.draft};
    if (conversation.last != VXIMStorePosition())
        answer.lastMessage = message(conversation.last.localId);
    return answer;
}

}  // namespace vexim::store
