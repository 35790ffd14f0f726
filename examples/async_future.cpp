// Operations as futures: several at once, with a deadline, cancelled from another thread.
#include <VexIMLib/Async/Future.h>
#include <VexIMLib/VexIMLib.h>

#include <iostream>
#include <stop_token>
#include <thread>

using namespace std::chrono_literals;

int main(int, char** arguments) try {
    auto client = VXIMClient::clientWithAppId("demo-app", "demo-key", "my-laptop");
    client->config()->setSocketURL(vexim::URL::parse(arguments[1]));

    // [several]
    auto login =
        vexim::future(vexim::call(&VXIMClient::loginWithUserId, client, "alice").within(10s));
    if (!vexim::wait(login)) return 1;  // runs the main queue; get() would block forever here

    auto alice = client->currentUser();
    auto friends = vexim::future(&VXIMUser::fetchFriendsWithDetail, alice, false);
    auto groups = vexim::future(&VXIMUser::fetchGroupsWithDetail, alice, false);
    vexim::wait(friends);
    vexim::wait(groups);
    // [/several]
    std::cout << alice->friends()->size() << " friends, " << alice->groups()->size() << " groups\n";

    // [cancel]
    std::stop_source stop;
    auto search = vexim::future(vexim::call(&VXIMQuery::findUserWithBlock, VXIMQuery::query())
                                    .cancelledBy(stop.get_token()));
    std::jthread([&] { stop.request_stop(); }).join();
    try {
        vexim::wait(search);
    } catch (const vexim::Failure& failure) {
        std::cout << failure.error()->domain() << ' ' << failure.error()->code() << ": "
                  << failure.what() << '\n';
    }
    // [/cancel]
    return 0;
} catch (const vexim::Failure& failure) {
    std::cerr << failure.what() << '\n';
    return 1;
}
