#include <gtest/gtest.h>

#include "VexIMLib/VexIMLib.h"
#include "support/Completions.h"
#include "support/Eventually.h"
#include "support/PeakMemory.h"
#include "support/RecordingService.h"

using namespace vexim::testing;

namespace {

/// Runs `count` operations of several kinds to their end, 16 in flight at a time.
void runOperations(int count) {
    auto group = VXIMGroup::groupWithId("g1");
    auto user = VXIMUser::userWithId("u1");
    int started = 0;
    int ended = 0;
    const auto counted = [&] {
        return once([&](const auto& outcome, const vexim::ErrorPtr& error) {
            EXPECT_FALSE(error);
            EXPECT_TRUE(vexim::Value(outcome).boolValue() || vexim::Value(outcome).isDictionary());
            ++ended;
        });
    };
    while (ended < count) {
        for (; started < count && started - ended < 16; ++started) {
            switch (started % 4) {
                case 0: group->updateAttributes({{"n", started}}, counted()); break;
                case 1: group->fetchWithBlock(counted()); break;
                case 2: user->fetchAttributesWithCompletion(counted()); break;
                default: group->removeMembers({"u9"}, counted()); break;
            }
        }
        ASSERT_TRUE(eventually([&, before = ended] { return ended > before; }));
    }
}

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr int kThousands = 5;  // ten times slower, and memory is not measured
#else
constexpr int kThousands = 100;
#endif

TEST(LongRunning, OperationsLeaveNoMemoryBehind) {
    RecordingService service;
    service.answerWith(200, R"({"members":["u1","u2"],"attributes":{"a":1}})");
    vexim::setKeepsFinishedDelegates(false);
    runOperations(kThousands * 100);
    const PeakMemory memory;
    runOperations(kThousands * 900);
    EXPECT_LE(memory.grownMiB(), 1);
    vexim::setKeepsFinishedDelegates(true);
}

}  // namespace
