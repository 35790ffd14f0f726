// The checks that all tests rely on must themselves be able to fail.

#include "support/Completions.h"

#include <gtest/gtest-spi.h>
#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <thread>

using vexim::testing::atMostOnce;
using vexim::testing::CompletionListener;
using vexim::testing::once;

namespace {

void endTest() {
    CompletionListener().OnTestEnd(*::testing::UnitTest::GetInstance()->current_test_info());
}

}  // namespace

TEST(Completions, PassOnTheirArguments) {
    std::string heard;
    const std::function<void(int, std::string)> completion =
        once([&](int code, const std::string& text) { heard = text + std::to_string(code); });
    completion(7, "code ");
    EXPECT_EQ(heard, "code 7");
}

TEST(Completions, FailTheTestWhenTheyRunTwice) {
    auto completion = atMostOnce([] {});
    completion();
    const std::function<void()> copy = completion;
    EXPECT_NONFATAL_FAILURE(copy(), "ran 2 times");
}

TEST(Completions, FailTheTestOffTheMainThread) {
    EXPECT_NONFATAL_FAILURE_ON_ALL_THREADS(std::thread(once([] {})).join(), "off the main thread");
}

TEST(Completions, FailTheTestWhenTheyNeverRanUnlessTheyNeedNot) {
    (void)atMostOnce([] {});
    endTest();
    (void)once([] {});
    EXPECT_NONFATAL_FAILURE(endTest(), "never ran");
}
