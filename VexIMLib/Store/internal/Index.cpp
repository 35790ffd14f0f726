#include "VexIMLib/Store/internal/Index.h"

#include <string>

#include "VexIMLib/Store/internal/Payloads.h"
#include "VexIMLib/Store/internal/Words.h"

namespace vexim::store {
namespace {

void changeWords(Database& database, const char* sql, std::int64_t id, std::int64_t conversation,
                 const Dictionary& payload) {
    if (VXIMMessageMediaTypeIsAttachment(mediaTypeOf(payload))) return;
    const auto text = payload.get("content").get("body").asStringView();
    if (!text || text->empty()) return;
    const std::string words = separateIdeographs(*text);
    const std::string place = placeWord(conversation);
    database.prepare(sql).bind(1, id).bind(2, words).bind(3, place).run();
}

}  // namespace

void addWords(Database& database, std::int64_t id, std::int64_t conversation,
              const Dictionary& payload) {
    changeWords(database, "INSERT INTO words(rowid, body, place) VALUES(?1, ?2, ?3)", id,
                conversation, payload);
}

void removeWords(Database& database, std::int64_t id, std::int64_t conversation,
                 const Dictionary& payload) {
    changeWords(database,
                "INSERT INTO words(words, rowid, body, place) VALUES('delete', ?1, ?2, ?3)", id,
                conversation, payload);
}

void addAllWords(Database& database) {
    Statement rows = database.prepare("SELECT id, conversation, payload FROM message ORDER BY id");
    while (rows.step())
        addWords(database, rows.integer(0), rows.integer(1), fromJSON(rows.text(2)));
}

}  // namespace vexim::store
