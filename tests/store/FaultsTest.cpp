// What a file, a disk and other programs may do to a store.
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <sstream>
#include <tuple>

#include "VexIMLib/Foundation/MainQueue.h"
#include "store/Damages.h"
#include "store/StoreFixture.h"
#include "support/ChildProcess.h"
#include "support/OrdinaryRights.h"

namespace vexim::testing {
namespace {

using StoreFaults = StoreTest;

TEST_F(StoreFaults, RefusesWhatItMustNotOpenAndLeavesItAsItIs) {
    open();
    receive("kept", kNoon);
    shut();
    struct Case {
        const char* why;
        std::string sql;
        std::int64_t code;
        VXIMMessageStoreOptions options = {};
    };
    const Case cases[] = {
        {"a newer version", "PRAGMA user_version = 4711", VXIMStoreErrorNewer},
        {"another user's", "UPDATE meta SET value = 'mallory' WHERE name = 'user'",
         VXIMStoreErrorOtherOwner},
        {"another service's", "UPDATE meta SET value = 'https://else' WHERE name = 'service'",
         VXIMStoreErrorOtherOwner},
        {"another program's", "PRAGMA application_id = 1", VXIMStoreErrorCannotOpen},
        {"no folder", "", VXIMStoreErrorCannotOpen, {.path = folder / "none/alice.vexim"}},
        {"no folder to look into", "", VXIMStoreErrorCannotOpen, {.path = folder / "none/"}},
        {"a file in a file", "", VXIMStoreErrorCannotOpen, {.path = path() + "/x"}},
        {"nothing to look at",
         "",
         VXIMStoreErrorCannotOpen,
         {.path = folder / "other", .readOnly = true}},
        {"a link to a device", "", VXIMStoreErrorCannotOpen, {.path = folder / "device"}},
    };
    std::filesystem::create_symlink("/dev/null", folder / "device");
    const std::string good = contentOf(path());
    for (const Case& each : cases) {
        setContent(path(), good);
        if (!each.sql.empty()) Other(path()).execute(each.sql);
        const std::string before = contentOf(path());
        EXPECT_EQ(codeOfOpening(each.options), each.code) << each.why;
        EXPECT_TRUE(contentOf(path()) == before) << each.why << ": the file was changed";
    }
    setContent(path(), good);
    open();
    EXPECT_EQ(texts(after({}, 9)), "kept");
    std::size_t files = 0;
    for (const auto& each : std::filesystem::directory_iterator(folder.path()))
        files += each.path().string().find("damaged") != std::string::npos;
    EXPECT_EQ(files, 0u) << "nothing of it was damage";
}

TEST_F(StoreFaults, GivesEachUserOfEachServiceAFileThatOnlyHeCanRead) {
    ::umask(0);
    const auto opened = [this](const char* user, const char* service) {
        open({.path = folder.path(), .userId = user, .service = service});
        receive(std::string(user) + "@" + service, kNoon);
        for (const char* const suffix : {"", "-wal", "-shm", "-lock"}) {
            struct stat file {};
            EXPECT_EQ(::stat((store->path() + suffix).c_str(), &file), 0) << suffix;
            EXPECT_EQ(file.st_mode & 0777, 0600u) << suffix;
        }
        return std::pair(store->path(), texts(after({}, 9)));
    };
    const auto first = opened("alice", "https://a");
    EXPECT_EQ(first.second, "alice@https://a");
    EXPECT_EQ(opened("alice", "https://b").second, "alice@https://b");
    EXPECT_EQ(opened("../../al ice", "https://a").second, "../../al ice@https://a");
    EXPECT_EQ(opened("alice", "https://a/").first, first.first)
        << "the slash at the end means nothing";
    ::chmod(first.first.c_str(), 0644);
    opened("alice", "https://a");
    open({.path = first.first, .service = "https://a"});
    EXPECT_EQ(store->userId(), "alice");
}

TEST_F(StoreFaults, SaysWhenAnotherHasTheFileAndGoesOnWhenHeIsGone) {
    open();
    receive("mine", kNoon);
    std::shared_ptr<VXIMMessageStore> second;
    EXPECT_EQ(codeOf([&] {
                  second =
                      wait(call(&VXIMMessageStore::open,
                                VXIMMessageStoreOptions{path(), "alice", "https://im.example"}));
              }),
              VXIMStoreErrorLocked);
    auto reader = wait(call(&VXIMMessageStore::open,
                            VXIMMessageStoreOptions{path(), "alice", "https://im.example", true}));
    EXPECT_EQ(texts(*wait(call(&VXIMMessageStore::messagesAfter, reader, bob, std::nullopt, 9))),
              "mine");
    EXPECT_EQ(codeOf([&] { wait(call(&VXIMMessageStore::setDraft, reader, bob, "x")); }),
              VXIMStoreErrorReadOnly);
    {
        Other other(path());
        other.execute("BEGIN IMMEDIATE");
        try {
            receive("not now", kNoon + 1);
            FAIL() << "it was locked";
        } catch (const Failure& failure) {
            EXPECT_TRUE(failure.error()->is(VXIMStoreErrorDomain, VXIMStoreErrorLocked));
            EXPECT_TRUE(isTemporary(failure.error()));
        }
        EXPECT_EQ(texts(after({}, 9)), "mine") << "reading goes on";
    }
    receive("now", kNoon + 2);
    EXPECT_EQ(texts(after({}, 9)), "mine now");
    wait(call(&VXIMMessageStore::close, store));
    EXPECT_EQ(codeOf([&] { receive("closed", kNoon); }), VXIMStoreErrorClosed);
    EXPECT_TRUE(wait(call(&VXIMMessageStore::close, store))) << "twice is once";
}

TEST_F(StoreFaults, TellsOfAFullDiskWritesNothingHalfAndLivesOn) {
    open();
    receive("before", kNoon);
    setContent(folder / "picture", std::string(300'000, 'x'));
    {
        const FullDisk full(120'000);
        // The disk fills up during one of these: each is stored completely, or gives an error.
        std::size_t stored = 0, refused = 0;
        for (int i = 0; i < 40; ++i) {
            const std::string text = "m" + std::to_string(i) + std::string(4000, 'y');
            const std::int64_t code = codeOf([&] {
                insert({{.conversation = team, .payload = payload(text, kNoon + 2 * i, "bob")},
                        {.conversation = team,
                         .payload = payload(text + "2", kNoon + 2 * i + 1, "bob")}});
            });
            code == 0 ? ++stored : ++refused;
            EXPECT_TRUE(code == 0 || code == VXIMStoreErrorDiskFull) << code;
        }
        EXPECT_GT(stored, 0u);
        EXPECT_GT(refused, 0u);
        EXPECT_EQ(after({}, 100, team).size(), 2 * stored);
        EXPECT_EQ(texts(after({}, 9)), "before");
        EXPECT_EQ(conversations().front().unreadCount, static_cast<std::int64_t>(2 * stored));
        EXPECT_EQ(codeOf([&] { write("picture", kNoon, {}, {folder / "picture"}); }),
                  VXIMStoreErrorDiskFull);
        const FullDisk fuller(1000);
        EXPECT_EQ(
            codeOf([&] {
                wait(call(&VXIMMessageStore::exportJSONLines, store, folder / "all", std::nullopt));
            }),
            VXIMStoreErrorDiskFull);
        EXPECT_FALSE(std::filesystem::exists(folder / "all.part"));
    }
    write("after", kNoon + 1, {}, {folder / "picture"});
    open();
    EXPECT_EQ(texts(after({}, 9)), "before after");
    EXPECT_FALSE(store->damage());
}

TEST_F(StoreFaults, SaysThatFileOrFolderCannotBeWritten) {
    open();
    receive("kept", kNoon);
    shut();
    const std::tuple<const char*, mode_t, mode_t> cases[] = {
        {"the file", 0700, 0444},
        {"the folder", 0555, 0666},
    };
    for (const auto& [why, folderMode, fileMode] : cases) {
        ::chmod(folder.path().c_str(), folderMode);
        for (const char* const suffix : {"", "-lock"}) ::chmod((path() + suffix).c_str(), fileMode);
        const std::string before = contentOf(path());
        {
            const OrdinaryRights ordinary;
            EXPECT_EQ(codeOfOpening(), VXIMStoreErrorReadOnly) << why;
        }
        EXPECT_TRUE(contentOf(path()) == before) << why;
        ::chmod(folder.path().c_str(), 0700);
    }
    open();
    EXPECT_EQ(texts(after({}, 9)), "kept");
}

TEST_F(StoreFaults, BringsAFileOfEveryEarlierVersionToThePresentOne) {
    for (const char* const version : {"/version1.sql", "/version2.sql"}) {
        SCOPED_TRACE(version);
        Other(path()).execute(contentOf(std::string(VEXIM_TEST_FILES) + version));
        EXPECT_EQ(codeOfOpening({.path = path(), .readOnly = true}), VXIMStoreErrorReadOnly);
        open();
        EXPECT_EQ(texts(after({}, 9)), "hello unsent");
        for (const char* const word : {"h*", "hell*", "hello"})
            EXPECT_EQ(texts(search({.text = word})), "hello") << word;
        EXPECT_EQ(texts(*wait(call(&Operations::waiting, shared()))), "unsent");
        EXPECT_EQ(conversations().front().draft, "a draft");
        EXPECT_EQ(conversations().front().unreadCount, 1);
        EXPECT_EQ(wait(call(&Operations::knownHistory, shared(), bob))->gaps,
                  (std::vector<VXIMStoredGap>{{1000, 2000}}));
        change(after({}, 9).back().localId, {.state = VXIMStoredMessageSending, .attempts = 3});
        receive("new", kNoon + 5000);
        open();
        EXPECT_EQ(after({}, 9).at(1).attempts, 3);
        EXPECT_FALSE(store->damage());
        wait(call(&VXIMMessageStore::removeConversation, store, bob));
        EXPECT_TRUE(search({.text = "hel*"}).empty()) << "the words went with the messages";
        shut();
        std::filesystem::remove(path());
    }
}

TEST_F(StoreFaults, HasAfterAKillAllThatItToldAsDone) {
    ::setenv("VEXIM_STORE_TO_FILL", path().c_str(), 1);
    // what the killed process leaves is removed with our folder
    const TemporaryFilesIn here(folder.path());
    for (const int lines : {1, 17, 60}) {
        std::size_t told = 0;
        {
            ChildProcess child({VEXIM_THIS_PROGRAM, "--gtest_also_run_disabled_tests",
                                "--gtest_filter=*DISABLED_FillsAStore"});
            while (told < static_cast<std::size_t>(lines)) {
                const auto line = child.readLine();
                ASSERT_TRUE(line);
                told += *line == "written";
            }
        }  // here it is killed
        open();
        EXPECT_GE(after({}, 100'000).size(), told);
        EXPECT_FALSE(store->damage());
        wait(call(&VXIMMessageStore::removeConversation, store, bob));
        shut();
    }
    ::unsetenv("VEXIM_STORE_TO_FILL");
}

TEST_F(StoreFaults, DISABLED_FillsAStore) {
    const char* const file = std::getenv("VEXIM_STORE_TO_FILL");
    if (file) open({.path = file});
    for (bool goesOn = file; goesOn; goesOn = ::write(1, "written\n", 8) == 8) write("text", kNoon);
}

TEST_F(StoreFaults, AnswersAForkedChildThatItHasNoStore) {
    open();
    receive("mine", kNoon);
    const pid_t child = ::fork();
    if (child == 0) {
        bool isRefused = false;
        store->conversations([&](const auto&, const ErrorPtr& error) {
            isRefused = error && error->code() == VXIMStoreErrorClosed;
        });
        store->close({});
        store = nullptr;
        MainQueue::shared().drain();
        ::_exit(isRefused ? 0 : 1);
    }
    int status = -1;
    ASSERT_EQ(::waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0);
    EXPECT_EQ(texts(after({}, 9)), "mine");
}

}  // namespace
}  // namespace vexim::testing
