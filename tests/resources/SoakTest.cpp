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

constexpr int kThousands = PeakMemory::kIsSanitized ? 5 : 30;  // sanitizers are ten times slower

TEST(LongRunning, OperationsLeaveNoMemoryBehind) {
    RecordingService service;
    service.answerWith(200, R"({"members":["u1","u2"],"attributes":{"a":1}})");
    vexim::setKeepsFinishedDelegates(false);
    const auto runThousands = [&](int count) {
        for (int i = 0; i < count; ++i) {
            runOperations(1000);
            service.takeRequests();  // the service keeps all requests
        }
    };
    runThousands(PeakMemory::kIsSanitized ? 1 : 5);
    const PeakMemory memory;
    runThousands(kThousands);
    EXPECT_LE(memory.leftMiB(), 1);
    vexim::setKeepsFinishedDelegates(true);
}

}  // namespace
