// The test kit's service as a program, for tests that are not C++: prints where it listens, ends
// when its standard input does.
//   fake_service [--socketio LINE] [other flags of the development service, which are ignored]
#include <iostream>
#include <string>
#include <string_view>

#include "VexIMLib/Testing/FakeService.h"

int main(int count, char** arguments) {
    vexim::testing::FakeService::Options options;
    for (int i = 1; i + 1 < count; ++i) {
        if (std::string_view(arguments[i]) == "--socketio")
            options.socketIOLine = std::stoi(arguments[i + 1]);
    }
    vexim::testing::FakeService service(options);
    std::cout << "listening on " << service.url() << std::endl;
    while (std::cin.get() != std::istream::traits_type::eof()) continue;
}
