#include <gtest/gtest.h>

#include "VexIMLib/VexIMLib.h"
#include "support/Completions.h"
#include "support/Eventually.h"
#include "support/PeakMemory.h"
#include "support/RecordingService.h"

using namespace vexim::testing;

namespace {

/// Runs `count` operations of several kinds, 16 in flight at a time.
void runOperations(int count) {
    auto group = VXIMGroup::groupWithId("g1");
    auto user = VXIMUser::userWithId("u1");
    int started = 0;
    int ended = 0;
    const VXIMBooleanCompletion done = [&](bool succeeded, const vexim::ErrorPtr&) {
        EXPECT_TRUE(succeeded);
        ++ended;
    };
    while (ended < count) {
        for (; started < count && started - ended < 16; ++started) {
            switch (started % 4) {
                case 0: group->updateAttributes({{"n", started}}, done); break;
                case 1: group->fetchWithBlock(done); break;
                case 2: user->fetchAttributesWithCompletion([&](auto, auto error) { done(!error, error); }); break;
                default: group->removeMembers({"u9"}, done); break;
            }
        }
        ASSERT_TRUE(eventually([&, before = ended] { return ended > before; }));
    }
}

TEST(LongRunning, OperationsLeaveNoMemoryBehind) {
    RecordingService service;
    service.stopRecording();
    service.answerWith(200, R"({"members":["u1","u2"],"attributes":{"a":1}})");
    vexim::setKeepsFinishedDelegates(false);
    runOperations(1000);
    const PeakMemory memory;
    for (int i = 0; i < 9; ++i) runOperations(1000);
    EXPECT_LE(memory.grownMiB(), 1);
    vexim::setKeepsFinishedDelegates(true);
}

}  // namespace
