// What can go wrong, and how the program learns of it.

#include <VexIMLib/VexIMLib.h>

#include <iostream>
#include <memory>
#include <string>

#include "Waiting.h"

namespace {

// [explain]
std::string explain(const vexim::ErrorPtr& error) {
    if (!error) return "no reason given";
    if (error->is(VXIMErrorDomain, 1)) return "Not connected.";
    if (error->is(VXErrorDomain, 100)) {  // no usable answer; the underlying error says why
        const auto cause = error->underlyingError();
        const bool slow = cause && cause->is(vexim::kURLErrorDomain, vexim::URLErrorTimedOut);
        return slow ? "The service is slow." : "The service cannot be reached.";
    }
    return error->localizedDescription();  // if the service refused, its own words
}
// [/explain]

bool failsWithoutAConnection(const std::shared_ptr<VXIMClient>& client) {
    std::string why;
    // [completion]
    client->sendMessageToFriend(VXIMMessage::messageWithText("hello?"), "bob",
                                [&why](bool sent, vexim::ErrorPtr error) {
                                    if (!sent) why = explain(error);
                                });
    // [/completion]
    return becomesTrue([&] { return why == "Not connected."; });
}

bool asksForANobody() {
    std::string why;
    VXIMUser::userWithId("nobody")->fetchWithCompletion(
        [&why](bool, vexim::ErrorPtr error) { why = explain(error); });
    return becomesTrue([&] { return why == "There is no such user."; });
}

bool findsNoService() {
    // nothing listens on this port
    vxim_configuration->setSocketURL(vexim::URL::parse("http://127.0.0.1:1"));
    std::string why;
    VXIMUser::userWithId("bob")->fetchWithCompletion(
        [&why](bool, vexim::ErrorPtr error) { why = explain(error); });
    return becomesTrue([&] { return why == "The service cannot be reached."; });
}

bool raisesForAMistake(const std::shared_ptr<VXIMClient>& client) {
    // [exception]
    try {
        client->loginWithUserId(std::nullopt, {});  // a programmer's mistake raises at once
    } catch (const vexim::Exception& exception) {
        std::cout << exception.what() << '\n';
        return exception.name() == vexim::kInvalidArgumentException;
    }
    // [/exception]
    return false;
}

}  // namespace

int main(int, char** arguments) {
    const auto client = demoClient(arguments[1]);
    return raisesForAMistake(client) && failsWithoutAConnection(client) && asksForANobody() &&
                   findsNoService()
               ? 0
               : 1;
}
