#include <gtest/gtest.h>

#include "VexIMLib/Foundation/MainQueue.h"
#include "support/Completions.h"

int main(int argc, char** argv) {
    testing::InitGoogleTest(&argc, argv);
    testing::UnitTest::GetInstance()->listeners().Append(new vexim::testing::CompletionListener);
    // the thread that runs the queue is the main thread: this one
    vexim::MainQueue::shared().drain();
    return RUN_ALL_TESTS();
}
