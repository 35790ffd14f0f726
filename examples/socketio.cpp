// Talks to any Socket.IO server: emits one event, prints what the server answers and the events
// that come meanwhile.
//
//     socketio URL NAMESPACE EVENT [ITEM …]        each ITEM is JSON
//     socketio http://localhost:3000 /chat say '"hello"'
#include <VexIMLib/Foundation/JSON.h>
#include <VexIMLib/VexIMLib.h>

#include <chrono>
#include <iostream>
#include <optional>
#include <string>

using vexim::AckEmitter;
using vexim::Array;
using vexim::SocketIOClient;

int main(int count, char** arguments) {
    if (count < 4) {
        std::cerr << "usage: socketio URL NAMESPACE EVENT [ITEM ...]\n";
        return 2;
    }
    Array items;
    for (int i = 4; i < count; ++i) {
        const auto item = vexim::parseJSON(arguments[i], vexim::JSONFragments::Allow);
        if (item.error) {
            std::cerr << item.error->localizedDescription() << '\n';
            return 2;
        }
        items.append(item.value);
    }

    // [connect]
    const vexim::Dictionary options{{"transports", Array{"websocket", "polling"}},
                                    {"connectTimeout", 10},
                                    {"reconnects", false}};
    const auto socket = SocketIOClient::create(vexim::URL::parse(arguments[1]), options);
    socket->joinNamespace(arguments[2]);
    // [/connect]

    std::optional<int> status;  // of this program

    // [handlers]
    socket->on("message", [](const Array& what, const AckEmitter& ack) {
        std::cout << "message " << vexim::Value(what).description() << '\n';
        ack.with({"thank you"});  // does nothing if the server wants no answer
    });
    socket->on("error", [&](const Array& what, const AckEmitter&) {
        std::cerr << what.get(0).description() << '\n';  // an error as a sentence
        status = 1;
    });
    socket->on("disconnect", [&](const Array& what, const AckEmitter&) {
        std::cerr << "disconnected: " << what.get(0).description() << '\n';
        if (!status) status = 1;
    });
    // [/handlers]

    // [emit]
    // Capture `socket` by reference: a handler that owns its socket would keep it alive forever.
    socket->on("connect", [&](const Array&, const AckEmitter&) {
        socket->emitWithAck(arguments[3], items, std::chrono::seconds(10),
                            [&](const Array& answer, const vexim::ErrorPtr& error) {
                                std::cout
                                    << (error ? error->localizedDescription()
                                              : "answer " + vexim::Value(answer).description())
                                    << '\n';
                                status = error ? 1 : 0;
                            });
    });
    socket->connect();
    // [/emit]

    // [run]
    vexim::MainQueue::shared().runUntil([&] { return status.has_value(); },
                                        std::chrono::seconds(30));
    // [/run]
    return status.value_or(1);
}
