#include "StoreCommands.h"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <system_error>
#include <vector>

#include "Attachment.h"
#include "Explain.h"
#include "LocalTime.h"
#include "Operation.h"
#include "Table.h"
#include "VexIMLib/Store/VXIMMessageStore.h"
#include "VexIMLib/VexIMLib.h"

namespace {

constexpr std::int32_t kUsualLimit = 50;

// A large store takes time, but a store that never answers must not block a script forever.
constexpr std::chrono::minutes kTimeout{10};

/// Runs the main queue until an operation has ended. Throws std::runtime_error if it fails.
template <class Result, class Start>
Result resultOf(Start start) {
    struct Outcome {
        bool arrived = false;
        Result result{};
        vexim::ErrorPtr error;
    };
    const auto outcome = std::make_shared<Outcome>();
    start([outcome](Result result, vexim::ErrorPtr error) {
        *outcome = {true, std::move(result), std::move(error)};
    });
    if (!vexim::MainQueue::shared().runUntil([&] { return outcome->arrived; }, kTimeout)) {
        throw std::runtime_error("the store did not answer");
    }
    if (outcome->error) throw std::runtime_error(explain(outcome->error));
    return std::move(outcome->result);
}

std::shared_ptr<VXIMMessageStore> opened(const Given& given) {
    const auto path = given.one("--store");
    const auto& server = given.account.server;
    const auto user = given.credentials.userId.value_or("");
    if (path.empty()) throw std::invalid_argument("say which store with --store");
    std::error_code ignored;
    if (std::filesystem::is_directory(path, ignored) && (user.empty() || server.empty())) {
        throw std::invalid_argument(
            "--store is a directory: say whose messages of which service with --user and --server");
    }
    // Opened for reading, so a running chat may have it open, too.
    VXIMMessageStoreOptions options{
        .path = path, .userId = user, .service = server, .readOnly = true};
    if (const auto url = vexim::URL::parse(server); url) options.service = url->absoluteString();
    return resultOf<std::shared_ptr<VXIMMessageStore>>(
        [&](auto done) { VXIMMessageStore::open(options, done); });
}

std::optional<VXIMConversationId> conversationOf(const Peer& peer) {
    if (peer.friendId) return VXIMConversationId{VXIMConversationKindFriend, *peer.friendId};
    if (peer.groupId) return VXIMConversationId{VXIMConversationKindGroup, *peer.groupId};
    if (peer.roomId) return VXIMConversationId{VXIMConversationKindRoom, *peer.roomId};
    return std::nullopt;
}

/// What to show of a message that was found.
vexim::Value shown(const VXIMStoredMessage& message) {
    const auto& place = message.conversation;
    return vexim::Dictionary{{"time", localTime(message.sentAtMillis)},
                             {"with", std::string(VXIMConversationKindName(place.kind)) +
                                          (place.id.empty() ? "" : " " + place.id)},
                             {"from", message.sender},
                             {"text", contentsOf(*message.message())}};
}

int runSearch(const Given& given) {
    VXIMMessageSearch search{.text = given.text("WORD"),
                             .conversation = conversationOf(given.peer),
                             .limit = given.number("--limit", 1, kUsualLimit)};
    search.sinceMillis = timeOf("--since", given.one("--since"));
    search.untilMillis = timeOf("--until", given.one("--until"));
    const auto isWordless = [](unsigned char c) { return c < 0x80 && std::isalnum(c) == 0; };
    if (std::all_of(search.text.begin(), search.text.end(), isWordless)) {
        throw std::invalid_argument("there is no letter or digit to search for in \"" +
                                    search.text + "\"");
    }
    const auto store = opened(given);
    const auto found = resultOf<std::optional<std::vector<VXIMStoredMessage>>>([&](auto done) {
                           store->search(search, done);
                       }).value();
    vexim::Array records;
    for (const auto& message : found)
        records.append(given.isJSON ? vexim::Value(message.record()) : shown(message));
    if (given.isJSON) {
        printJSON(records);
    } else {
        std::fputs(tableOf(records).c_str(), stdout);
        if (found.empty()) std::fputs("vexim: nothing found\n", stderr);
    }
    return 0;
}

/// A temporary directory for this run. It is removed with this object.
class Folder {
public:
    Folder() : path_((std::filesystem::temp_directory_path() / "vexim-export-XXXXXX").string()) {
        if (::mkdtemp(path_.data()) == nullptr)
            throw std::runtime_error("no temporary directory: " + path_);
    }
    ~Folder() {
        std::error_code ignored;
        std::filesystem::remove_all(path_, ignored);
    }
    Folder(const Folder&) = delete;
    Folder& operator=(const Folder&) = delete;
    std::string file() const { return path_ + "/messages.jsonl"; }

private:
    std::string path_;
};

int runExport(const Given& given) {
    const auto store = opened(given);
    const auto writeTo = [&](const std::string& path) {
        return resultOf<std::optional<std::int64_t>>([&](auto done) {
                   store->exportJSONLines(path, conversationOf(given.peer), done);
               })
            .value();
    };
    if (const auto file = given.one("FILE"); !file.empty() && file != "-") {
        const auto count = writeTo(file);
        std::fprintf(stderr, "vexim: %lld messages\n", static_cast<long long>(count));
        return 0;
    }
    const Folder folder;
    writeTo(folder.file());
    std::ifstream lines(folder.file(), std::ios::binary);
    for (std::array<char, 65'536> piece{};
         lines.read(piece.data(), piece.size()) || lines.gcount() > 0;) {
        // main reports the reason
        if (std::fwrite(piece.data(), 1, static_cast<std::size_t>(lines.gcount()), stdout) == 0)
            break;
    }
    return 0;
}

}  // namespace

std::vector<CommandSpec> storeCommands() {
    auto ofSearch = peerOptions("Only the conversation with");
    auto ofExport = ofSearch;
    ofSearch.insert(ofSearch.begin(), storeOption());
    ofExport.insert(ofExport.begin(), storeOption());
    ofSearch.insert(ofSearch.end(),
                    {{"--since", "TIME", "From this time on, written as for --until"},
                     {"--until", "TIME", kTimeHelp},
                     {"--limit", "NUMBER", "How many at most; 50 by default"}});
    return {
        {"search",
         "Find messages in a store, the newest first",
         {{"WORD", "Words that must all occur; \"wor*\" is the beginning of one", Count::Some}},
         std::move(ofSearch),
         runSearch},
        {"export",
         "Write the messages of a store as JSON lines",
         {{"FILE", "A file, which is replaced; \"-\" or none: standard output", Count::Optional}},
         std::move(ofExport),
         runExport},
    };
}
