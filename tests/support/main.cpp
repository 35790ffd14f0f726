#include <gtest/gtest.h>

#include "VexIMLib/Foundation/MainQueue.h"
#include "support/Completions.h"

int main(int argc, char** argv) {
    testing::InitGoogleTest(&argc, argv);
    testing::UnitTest::GetInstance()->listeners().Append(new vexim::testing::CompletionListener);
    vexim::MainQueue::shared().drain();  // the thread that runs the queue is the main thread: this one
    return RUN_ALL_TESTS();
}

#if defined(__SANITIZE_THREAD__)
// ThreadSanitizer sees a folder's descriptor closed but not opened, so it takes the number for that of a socket which the
// network thread had before, and calls the two a race.
extern "C" const char* __tsan_default_suppressions() { return "race:closedir\n"; }
#endif
