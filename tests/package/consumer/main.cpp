// What an installed library must be able to do in a stranger's program: link all that it needs, and run its threads.
#include <VexIMLib/Foundation/JSON.h>
#include <VexIMLib/Foundation/MainQueue.h>

#include <chrono>
#include <cstdio>
#include <string>

#if defined(VEXIM_STATIC)
constexpr const char* kLinked = "static";
#else
constexpr const char* kLinked = "shared";
#endif

int main(int, char** arguments) {
    if (std::string(arguments[1]) != kLinked) {
        std::printf("expected the %s library, but this is the %s one\n", arguments[1], kLinked);
        return 1;
    }
    bool called = false;
    vexim::MainQueue::shared().async([&called] { called = true; });
    vexim::MainQueue::shared().runUntil([&called] { return called; }, std::chrono::seconds(10));
    const bool parsed = vexim::parseJSON("{\"ts\": 1}").error == nullptr;
    return called && parsed ? 0 : 1;
}
