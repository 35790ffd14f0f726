#include "StoreCommands.h"

#include <unistd.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <array>
#include <cctype>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <system_error>
#include <vector>

#include "Chat.h"
#include "Explain.h"
#include "VexIMLib/Store/VXIMMessageStore.h"
#include "VexIMLib/VexIMLib.h"
#include "chat/Text.h"

namespace {

using vexim::Value;

// A large store takes its time; one that does not answer at all must not hang a script.
constexpr std::chrono::minutes kTimeout{10};

/// What search and export take from the command line.
struct Arguments {
    std::string store;
    std::string server;
    std::string user;
    std::string text;
    std::string file;
    std::string since;
    std::string until;
    std::int32_t limit = 50;
    bool json = false;

    void addOptions(CLI::App& command) {
        command.add_option("--store", store, "The file of the messages, or a folder of such files")
            ->required();
        command.add_option("--user", user, "Whose messages: for a folder");
        command.add_option("--server", server, "Of which service: for a folder");
    }
};

/// Runs the main queue until an operation has ended. Throws std::runtime_error with its error.
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

std::shared_ptr<VXIMMessageStore> opened(const Arguments& arguments) {
    std::error_code ignored;
    const bool isFolder = std::filesystem::is_directory(arguments.store, ignored);
    if (isFolder && (arguments.user.empty() || arguments.server.empty())) {
        throw std::invalid_argument(
            "--store is a folder: say whose messages of which service with --user and --server");
    }
    // As a reader: beside a chat that has it open.
    VXIMMessageStoreOptions options{.path = arguments.store,
                                    .userId = arguments.user,
                                    .service = arguments.server,
                                    .readOnly = true};
    if (const auto url = vexim::URL::parse(arguments.server); url)
        options.service = url->absoluteString();
    return resultOf<std::shared_ptr<VXIMMessageStore>>(
        [&](auto done) { VXIMMessageStore::open(options, done); });
}

std::optional<VXIMConversationId> conversationOf(const Peer& peer) {
    if (peer.friendId) return VXIMConversationId{VXIMConversationKindFriend, *peer.friendId};
    if (peer.groupId) return VXIMConversationId{VXIMConversationKindGroup, *peer.groupId};
    if (peer.roomId) return VXIMConversationId{VXIMConversationKindRoom, *peer.roomId};
    return std::nullopt;
}

/// A day ("2026-11-22"), a minute of it ("2026-11-22T09:30"), both local time, or seconds since
/// 1970. In milliseconds.
std::optional<std::int64_t> timeOf(const char* option, const std::string& word) {
    if (word.empty()) return std::nullopt;
    if (std::all_of(word.begin(), word.end(),
                    [](unsigned char c) { return std::isdigit(c) != 0; }) &&
        word.size() <= 12) {
        return std::stoll(word) * 1000;
    }
    for (const char* const format : {"%Y-%m-%dT%H:%M", "%Y-%m-%d %H:%M", "%Y-%m-%d"}) {
        std::tm parts{};
        parts.tm_isdst = -1;
        const char* const end = ::strptime(word.c_str(), format, &parts);
        if (end != nullptr && *end == '\0')
            return static_cast<std::int64_t>(std::mktime(&parts)) * 1000;
    }
    throw std::invalid_argument(
        std::string(option) +
        " takes a day such as 2026-11-22, a time such as 2026-11-22T09:30, or " +
        "seconds since 1970, not \"" + word + "\"");
}

std::string lineOf(const VXIMStoredMessage& message) {
    const auto time = static_cast<std::time_t>(message.sentAtMillis / 1000);
    std::tm parts{};
    ::localtime_r(&time, &parts);
    std::array<char, 32> day{};
    std::strftime(day.data(), day.size(), "%Y-%m-%d %H:%M", &parts);
    const std::string place =
        std::string(VXIMConversationKindName(message.conversation.kind)) +
        (message.conversation.id.empty() ? "" : " " + message.conversation.id);
    return std::string(day.data()) + "  " + place + ", " + message.sender + ": " + message.text();
}

int runSearch(const Arguments& arguments, const Peer& peer) {
    VXIMMessageSearch search{
        .text = arguments.text, .conversation = conversationOf(peer), .limit = arguments.limit};
    search.sinceMillis = timeOf("--since", arguments.since);
    search.untilMillis = timeOf("--until", arguments.until);
    const auto isWordless = [](unsigned char c) { return c < 0x80 && std::isalnum(c) == 0; };
    if (std::all_of(search.text.begin(), search.text.end(), isWordless)) {
        throw std::invalid_argument("there is no letter or digit to search for in \"" +
                                    search.text + "\"");
    }
    if (search.limit < 1)
        throw std::invalid_argument("--limit takes a number from 1 on, not " +
                                    std::to_string(search.limit));
    const auto store = opened(arguments);
    const auto found = resultOf<std::optional<std::vector<VXIMStoredMessage>>>([&](auto done) {
                           store->search(search, done);
                       }).value();
    if (arguments.json) {
        vexim::Array records;
        for (const auto& message : found) records.append(message.record());
        std::printf("%s\n", vexim::writeJSON(records).text.c_str());
    } else {
        for (const auto& message : found)
            std::printf("%s\n", chat::harmless(lineOf(message)).c_str());
    }
    return 0;
}

/// A folder for this run, which goes with it.
class Folder {
public:
    Folder() : path_((std::filesystem::temp_directory_path() / "vexim-export-XXXXXX").string()) {
        if (::mkdtemp(path_.data()) == nullptr)
            throw std::runtime_error("no temporary folder: " + path_);
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

int runExport(const Arguments& arguments, const Peer& peer) {
    const auto store = opened(arguments);
    const auto writeTo = [&](const std::string& path) {
        return resultOf<std::optional<std::int64_t>>(
                   [&](auto done) { store->exportJSONLines(path, conversationOf(peer), done); })
            .value();
    };
    if (!arguments.file.empty() && arguments.file != "-") {
        const auto count = writeTo(arguments.file);
        std::fprintf(stderr, "vexim: %lld messages\n", static_cast<long long>(count));
        return 0;
    }
    const Folder folder;
    writeTo(folder.file());
    std::ifstream lines(folder.file(), std::ios::binary);
    for (std::array<char, 65'536> piece{};
         lines.read(piece.data(), piece.size()) || lines.gcount() > 0;) {
        // main tells why
        if (std::fwrite(piece.data(), 1, static_cast<std::size_t>(lines.gcount()), stdout) == 0)
            break;
    }
    return 0;
}

}  // namespace

void addStoreCommands(CLI::App& app, Account& account, Credentials& credentials, Peer& peer,
                      std::function<int()>& chosen) {
    const auto arguments = std::make_shared<Arguments>();
    const auto kept = std::make_shared<std::optional<std::string>>();

    auto& chat = *app.add_subcommand("chat", "Chat from this terminal");
    account.addOptions(chat);
    credentials.addOptions(chat);
    peer.addOptions(chat);
    chat.add_option("--store", *kept,
                    "Keep the messages in this file, or in a file of this folder");
    chat.footer(chatHelp);
    chat.callback(
        [&, kept] { chosen = [&, kept] { return runChat(account, credentials, peer, *kept); }; });

    auto& search = *app.add_subcommand("search", "Find messages in a store, the newest first");
    search
        .add_option("TEXT", arguments->text,
                    "Words that must all occur; \"wor*\" is the beginning of one")
        ->required();
    arguments->addOptions(search);
    peer.addOptions(search);
    search.add_option("--since", arguments->since,
                      "From this time on: 2026-11-22, 2026-11-22T09:30, or seconds since 1970");
    search.add_option("--until", arguments->until, "Before this time");
    search.add_option("--limit", arguments->limit, "How many at most")->capture_default_str();
    search.add_flag("--json", arguments->json, "Print JSON");
    search.callback([&chosen, &peer, arguments] {
        chosen = [&peer, arguments] { return runSearch(*arguments, peer); };
    });

    auto& write = *app.add_subcommand("export", "Write the messages of a store as JSON lines");
    write.add_option("FILE", arguments->file,
                     "A file, which is replaced; \"-\" or none: standard output");
    arguments->addOptions(write);
    peer.addOptions(write);
    write.callback([&chosen, &peer, arguments] {
        chosen = [&peer, arguments] { return runExport(*arguments, peer); };
    });
}
