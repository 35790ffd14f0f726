#include "VexIMLib/Foundation/Object.h"

#include <gtest/gtest.h>

#include <thread>
#include <vector>

#include "VexIMLib/Foundation/Error.h"
#include "VexIMLib/Foundation/Exception.h"
#include "VexIMLib/Foundation/FailureListener.h"
#include "VexIMLib/Foundation/KeyedArchiver.h"
#include "VexIMLib/Foundation/Runtime/Class.h"
#include "VexIMLib/Foundation/UntoldError.h"
#include "VexIMLib/VXIMErrors.h"
#include "support/Race.h"

using namespace vexim;

namespace {

class Song final : public Object {
public:
    using Object::Object;
    bool initialise(std::string title) {
        title_ = std::move(title);
        return !title_.empty();
    }
    Value valueForKey(std::string_view key) const override {
        return key == "title" ? Value(title_) : Value();
    }
    void setTitle(std::string title) {
        willChangeValueForKey("title");
        title_ = std::move(title);
        didChangeValueForKey("title");
    }

private:
    std::string title_;
};

}  // namespace

TEST(Object, IsMadeOnlyWhenItsInitialiserAgrees) {
    EXPECT_TRUE(create<Song>("a"));
    EXPECT_EQ(create<Song>(""), nullptr);
    EXPECT_THROW(create<Song>("a")->copy(), Exception);
}

TEST(KeyValueObserving, TellsObserversOfTheKeyInOrderWithTheNewValue) {
    auto song = create<Song>("a");
    auto observer = std::make_shared<int>();
    std::string heard;
    for (const char* name : {"1", "2", "3"}) {
        song->addObserver(observer, "title", [&heard, name](Object&, const KeyValueChange& change) {
            heard += name + change.key + change.newValue.description() + " ";
        });
    }
    song->addObserver(observer, "artist",
                      [&](Object&, const KeyValueChange&) { heard += "artist "; });
    song->setTitle("b");
    EXPECT_EQ(heard, "1titleb 2titleb 3titleb ");
    heard.clear();
    song->removeObserver(observer.get(), "title");
    song->setTitle("c");
    song->didChangeValueForKey("artist");
    EXPECT_EQ(heard, "artist ");
}

TEST(KeyValueObserving, ForgetsAnObserverThatIsGone) {
    auto song = create<Song>("a");
    int calls = 0;
    auto observer = std::make_shared<int>();
    song->addObserver(observer, "title", [&](Object&, const KeyValueChange&) { ++calls; });
    observer.reset();
    song->setTitle("b");
    EXPECT_EQ(calls, 0);
}

// Two observers, one after the other, at one address.
TEST(KeyValueObserving, TellsAnObserverFromTheOneThatLayThereBefore) {
    auto song = create<Song>("a");
    int place = 0;
    int calls = 0;
    const auto held = std::make_shared<int>();
    {
        const std::shared_ptr<void> former(std::make_shared<int>(), &place);
        song->addObserver(former, "title",
                          [&calls, held](Object&, const KeyValueChange&) { calls += 100; });
    }
    const std::shared_ptr<void> observer(std::make_shared<int>(), &place);
    song->addObserver(observer, "title", [&](Object&, const KeyValueChange&) { ++calls; });
    EXPECT_EQ(held.use_count(), 1) << "what the former one left goes";
    song->setTitle("b");
    EXPECT_EQ(calls, 1);
}

TEST(KeyValueObserving, HonoursWhatHappensInsideAHandler) {
    auto song = create<Song>("a");
    auto first = std::make_shared<int>();
    auto second = std::make_shared<int>();
    std::string heard;
    song->addObserver(first, "title", [&](Object& object, const KeyValueChange&) {
        heard += "1";
        object.removeObserver(second.get(), "title");
        object.addObserver(first, "title", [&](Object&, const KeyValueChange&) { heard += "new"; });
        song.reset();  // the last reference but the one that the call keeps
    });
    song->addObserver(second, "title", [&](Object&, const KeyValueChange&) { heard += "2"; });
    song->addObserver(first, "title",
                      [&, weak = std::weak_ptr(song)](Object&, const KeyValueChange&) {
                          heard += weak.expired() ? "dead" : "3";
                      });
    song->setTitle("b");
    EXPECT_EQ(heard, "13") << "removed: not called; added: not called yet";
    EXPECT_EQ(song, nullptr);
}

TEST(KeyValueObserving, WorksFromSeveralThreads) {
    auto song = create<Song>("a");
    std::atomic<int> calls{0};
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([&] {
            for (int i = 0; i < 200; ++i) {
                auto observer = std::make_shared<int>();
                song->addObserver(observer, "title",
                                  [&](Object&, const KeyValueChange&) { ++calls; });
                song->didChangeValueForKey("title");
                song->removeObserver(observer.get(), "title");
            }
        });
    }
    for (auto& thread : threads) thread.join();
    EXPECT_GE(calls, 800) << "each thread's own at least";
    const int before = calls;
    song->didChangeValueForKey("title");
    EXPECT_EQ(calls, before);

    std::vector<std::shared_ptr<Song>> songs(500);
    for (auto& each : songs) each = create<Song>("a");
    calls = 0;
    const auto observeFirst = [&](int i) {
        songs[static_cast<std::size_t>(i)]->addObserver(
            song, "title", [&](Object&, const KeyValueChange&) { ++calls; });
    };
    vexim::testing::race(500, observeFirst, observeFirst);
    for (const auto& each : songs) each->didChangeValueForKey("title");
    EXPECT_EQ(calls, 1000) << "both of two first observers are heard";
}

TEST(Error, DescribesItself) {
    EXPECT_EQ(Error::withDescription("d", 7, "It failed.")->localizedDescription(), "It failed.");
    EXPECT_EQ(Error::make("d", 7)->localizedDescription(),
              "The operation couldn’t be completed. (d error 7.)");
    EXPECT_EQ(Error::make("d", 7, Dictionary{{"errorMessage", "No."}})->localizedDescription(),
              "No.")
        << "a service's words";
    EXPECT_EQ(Error::make("d", 7, "the service's text")->userInfo(), "the service's text");
    EXPECT_TRUE(Error::make("d", 7, "not a dictionary")->info("key").isNil());
    const auto inner = Error::make("inner", 1);
    EXPECT_EQ(Error::make("outer", 2, Dictionary{{kUnderlyingErrorKey, inner}})->underlyingError(),
              inner);
}

TEST(Error, MayPassByItsKindAndElseByItsCauseOrMark) {
    const auto connection = [](std::int64_t kind) {
        return Error::make(VXIMConnectionErrorDomain, kind);
    };
    const auto marked = [](ErrorPtr cause) {
        Dictionary info{{kTemporaryKey, true}};
        info.setOrRemove(kUnderlyingErrorKey, cause);
        return Error::make(VXErrorDomain, 100, std::move(info));
    };
    const auto transport = [](std::int64_t code) { return Error::make(kURLErrorDomain, code); };
    const struct {
        const char* why;
        ErrorPtr error;
        bool mayPass;
    } rows[] = {
        {"no error", nullptr, false},
        {"a connection that was lost", connection(VXIMConnectionErrorLost), true},
        {"a server that cannot be reached", connection(VXIMConnectionErrorUnreachable), true},
        {"a host that is not found", connection(VXIMConnectionErrorHostNotFound), true},
        {"a server that is silent", connection(VXIMConnectionErrorTimedOut), true},
        {"a certificate", connection(VXIMConnectionErrorNotSecure), false},
        {"a refusal", connection(VXIMConnectionErrorRefused), false},
        {"a timeout", transport(URLErrorTimedOut), true},
        {"a URL that is none", transport(URLErrorBadURL), false},
        {"a mark alone", marked(nullptr), true},
        {"a mark above a status", marked(transport(URLErrorBadServerResponse)), true},
        {"a mark above a cause that stays", marked(transport(URLErrorBadURL)), false},
        {"a mark above a cause that passes", marked(transport(URLErrorTimedOut)), true},
        {"anything else", Error::make("else", 1), false},
    };
    for (const auto& [why, error, mayPass] : rows) EXPECT_EQ(isTemporary(error), mayPass) << why;
}

TEST(Error, IsToldToTheInnermostListenerOfTheThread) {
    std::string heard;
    const auto hearing = [&heard](const char* word) {
        return [&heard, word](const ErrorPtr&) { heard += word; };
    };
    const FailureListener outer(hearing("outer "));
    const UntoldError first(Error::make("first", 1));
    {
        const FailureListener inner(hearing("inner "));
        const UntoldError second(nullptr);
        FailureListener::current()(nullptr);
        EXPECT_EQ(UntoldError::current(), nullptr);
    }
    FailureListener::current()(nullptr);
    EXPECT_EQ(heard, "inner outer ");
    EXPECT_EQ(UntoldError::current()->domain(), "first");
}

TEST(Archive, IsReadByItsOwnClassOnly) {
    Coder coder;
    coder.encode("title", "a");
    const Data archive = detail::archive(Error::staticClass(), coder, nullptr);
    ErrorPtr error;
    EXPECT_FALSE(detail::unarchive(Object::staticClass(), archive, &error));
    EXPECT_TRUE(error) << "of another class";
    EXPECT_EQ(detail::unarchive(Error::staticClass(), archive, &error)->decode("title"), "a");
    EXPECT_FALSE(error) << "the former failure is over";
}
