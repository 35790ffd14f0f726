#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <random>
#include <stdexcept>
#include <thread>

#include "VexIMLib/Foundation/Exception.h"
#include "VexIMLib/Foundation/Value.h"

using namespace vexim;

TEST(Array, SharesUntilWritten) {
    Array original{1, "a text that does not lie inline", Array{2}};
    const Array kept = original;
    EXPECT_EQ(original.begin(), kept.begin());
    original.set(0, 9);
    original.update(2, [](Value& inner) { inner.mutableArray().append(3); });
    EXPECT_EQ(original, Array({9, "a text that does not lie inline", Array{2, 3}}));
    EXPECT_EQ(kept, Array({1, "a text that does not lie inline", Array{2}}));
}

TEST(Array, ChangesAContainerInsideWithoutCopyingIt) {
    Array outer{Value(Array{1, 2, 3})};
    const Value* before = outer.at(0).asArray()->begin();
    outer.update(0, [](Value& inner) { inner.mutableArray().set(1, 9); });
    EXPECT_EQ(outer.at(0).asArray()->begin(), before);
    EXPECT_EQ(outer, Array{Value(Array{1, 9, 3})});
    EXPECT_THROW(outer.update(0, [](Value&) { throw std::runtime_error("no"); }),
                 std::runtime_error);
    EXPECT_EQ(outer, Array{Value(Array{1, 9, 3})}) << "an exception loses nothing";
}

TEST(Array, RefusesNilAndIndexesBeyondTheEnd) {
    Array array{1};
    EXPECT_THROW(array.append(nullptr), Exception);
    EXPECT_THROW(array.set(0, nullptr), Exception);
    EXPECT_THROW(array.set(1, 1), Exception);
    EXPECT_THROW(array.remove(1), Exception);
    EXPECT_THROW(array.update(1, [](Value&) {}), Exception);
    EXPECT_THROW(Array({1, nullptr}), Exception);
    EXPECT_THROW(array.at(1), Exception);
    EXPECT_TRUE(array.get(1).isNil());
    EXPECT_EQ(array, Array{1});
    array.appendAll({2, 3, 4, 5});
    array.remove(1);
    EXPECT_EQ(array, Array({1, 3, 4, 5}));
    EXPECT_NE(Array{1}, array) << "the beginning of another one";
}

TEST(Array, TakesItsOwnElementsAsArguments) {
    Array array{"the first, not inline at all", 2, 3};
    for (int i = 0; i < 10; ++i) array.append(array.at(0));
    array.appendAll(array);
    EXPECT_EQ(array.size(), 26u);
    array.removeAll(array.at(0));
    EXPECT_EQ(array, Array({2, 3, 2, 3}));
    array.update(1, [&](Value& element) {
        array.clear();  // the array may change meanwhile
        element = 7;
    });
    EXPECT_TRUE(array.empty());
}

TEST(Dictionary, KeepsInsertionOrderAndOverwritesInPlace) {
    Dictionary dictionary{{"b", 1}, {"a", 2}, {"c", 3}};
    const Dictionary kept = dictionary;
    dictionary.set("a", 8);
    EXPECT_EQ(kept.get("a"), 2) << "a copy has its own values";
    dictionary.addEntries({{"a", 9}});
    dictionary.remove("b");
    dictionary.set("b", 4);
    EXPECT_EQ(dictionary.keys(), (std::vector<std::string>{"a", "c", "b"}));
    EXPECT_EQ(dictionary, Dictionary({{"b", 4}, {"c", 3}, {"a", 9}})) << "compared without order";
    EXPECT_NE(dictionary, Dictionary({{"b", 4}, {"c", 3}, {"d", 9}}));
}

TEST(Dictionary, UpdatesInPlaceAndRemovesWhatBecomesNil) {
    Dictionary dictionary{{"inner", Dictionary{{"x", 1}}}, {"gone", 2}};
    const Dictionary kept = dictionary;
    dictionary.update("inner", [](Value& inner) { inner.mutableDictionary().set("y", 2); });
    dictionary.update("gone", [](Value& value) { value = nullptr; });
    dictionary.update("new", [](Value& value) {
        EXPECT_TRUE(value.isNil());
        value = 3;
    });
    dictionary.update("never", [](Value&) {});
    EXPECT_EQ(dictionary, Dictionary({{"inner", Dictionary{{"x", 1}, {"y", 2}}}, {"new", 3}}));
    EXPECT_EQ(kept, Dictionary({{"inner", Dictionary{{"x", 1}}}, {"gone", 2}}));

    EXPECT_THROW(dictionary.update("new", [](Value&) { throw std::runtime_error("no"); }),
                 std::runtime_error);
    EXPECT_EQ(dictionary.get("new"), 3) << "an exception loses nothing";
}

TEST(Dictionary, RefusesNil) {
    Dictionary dictionary{{"a", 1}};
    EXPECT_THROW(dictionary.set("a", nullptr), Exception);
    EXPECT_EQ(dictionary.get("a"), 1);
    dictionary.setOrRemove("a", nullptr);
    dictionary.setOrRemove("b", nullptr);
    EXPECT_TRUE(dictionary.empty());
}

TEST(Dictionary, TakesItsOwnKeysAsArguments) {
    Dictionary dictionary;
    for (int i = 0; i < 40; ++i)
        dictionary.set("a key that does not lie inline " + std::to_string(i), i);
    while (!dictionary.empty()) dictionary.remove((*dictionary.begin()).key);
    dictionary.set("x", "a text that does not lie inline");
    for (int i = 0; i < 20; ++i) dictionary.set(*dictionary.get("x").asStringView(), i);
    dictionary.addEntries(dictionary);
    EXPECT_EQ(dictionary.size(), 2u);
}

// Compares with a simple model: few keys and many, short and long, so that the hash index is used
// and has collisions.
TEST(Dictionary, AgreesWithAModelOverRandomOperations) {
    for (unsigned seed = 1; seed <= 30; ++seed) {
        SCOPED_TRACE(seed);
        std::mt19937 random(seed);
        const unsigned keyCount = seed % 3 == 0 ? 12 : seed * 20;
        Dictionary dictionary;
        std::vector<std::pair<std::string, int>> model;
        std::vector<std::pair<Dictionary, std::size_t>> snapshots;
        for (int step = 0; step < 2000; ++step) {
            auto number = random() % keyCount;
            std::string key = number % 2 ? std::to_string(number)
                                         : "some longer key, number " + std::to_string(number);
            auto at = std::find_if(model.begin(), model.end(),
                                   [&](const auto& entry) { return entry.first == key; });
            ASSERT_EQ(dictionary.contains(key), at != model.end());
            if (random() % 3 == 0) {
                ASSERT_EQ(dictionary.remove(key), at != model.end());
                if (at != model.end()) model.erase(at);
            } else {
                dictionary.set(key, step);
                if (at != model.end()) {
                    at->second = step;
                } else {
                    model.emplace_back(key, step);
                }
            }
            if (step % 500 == 0) snapshots.emplace_back(dictionary, dictionary.size());
        }
        ASSERT_EQ(dictionary.size(), model.size());
        auto expected = model.begin();
        for (const auto& [key, value] : dictionary) {
            ASSERT_EQ(key, expected->first);
            ASSERT_EQ(value, expected->second);
            ++expected;
        }
        for (const auto& [snapshot, size] : snapshots) ASSERT_EQ(snapshot.size(), size);
    }
}

TEST(Containers, CopiesAreUsedFromSeveralThreads) {
    Dictionary shared;
    for (int i = 0; i < 50; ++i)
        shared.set(std::to_string(i), Array{"a text that does not lie inline", i});
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([mine = shared, t]() mutable {
            for (int i = 0; i < 500; ++i) {
                Dictionary copy = mine;
                copy.update(std::to_string(i % 50),
                            [&](Value& value) { value.mutableArray().append(t); });
                mine = copy;
            }
        });
    }
    for (auto& thread : threads) thread.join();
    EXPECT_EQ(shared.get("7"), Array({"a text that does not lie inline", 7}));
}
