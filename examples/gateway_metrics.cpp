// Metrics for a gateway: for Prometheus, and as a line for people.
#include <VexIMLib/VexIMLib.h>

#include <iostream>
#include <string>
#include <vector>

#include "Waiting.h"

int main(int argc, char** argv) {
    if (argc != 2) {
        std::cerr << "usage: gateway_metrics URL\n";
        return 2;
    }
    // [share]
    const auto metrics = VXIMMetrics::init();
    std::vector<std::shared_ptr<VXIMClient>> clients;
    for (const char* user : {"alice", "bob"}) {
        auto client = demoClient(argv[1]);
        client->config()->setMetrics(metrics);  // the same object for all clients
        if (!succeeds([&](auto done) { client->loginWithUserId(user, done); })) return 1;
        clients.push_back(std::move(client));
    }
    // [/share]

    const auto greeting = VXIMMessage::messageWithText("The parcel is here.");
    if (!succeeds([&](auto done) { clients[0]->sendMessageToFriend(greeting, "bob", done); }))
        return 1;
    if (!succeeds([&](auto done) {
            clients[0]->currentUser()->updateAttributes({{"desk", "north"}}, done);
        }))
        return 1;
    // [figures]
    const auto connected = [&] {
        return metrics->total("vexim_connections", {{"status", "connected"}});
    };
    const auto arrived = [&] {
        return metrics->total("vexim_messages_received_total", {{"kind", "peer"}});
    };
    // [/figures]
    if (!becomesTrue([&] { return connected() == 2 && arrived() == 1; })) return 1;

    // [people]
    const auto show = [&](const char* what, std::string_view name) {
        std::cout << what << metrics->total(name).value_or(0) << '\n';
    };
    show("times connected:      ", "vexim_connections_joined_total");
    show("waiting to be sent:   ", "vexim_send_queue_events");
    show("waiting to be read:   ", "vexim_undelivered_events");
    show("REST requests:        ", "vexim_request_duration_seconds");
    // [/people]

    // [answer]
    // What your HTTP server answers to GET /metrics, with the type
    // "text/plain; version=0.0.4; charset=utf-8". Call it on any thread.
    std::cout << metrics->prometheusText({{"gateway", "north"}});
    // [/answer]
    return metrics->total("vexim_request_duration_seconds", {{"outcome", "success"}}) >= 1 ? 0 : 1;
}
