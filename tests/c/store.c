// A store through the C interface. Alice queues messages without a connection, while it is cut, and
// right before her process is killed; her next process finds them and sends them. In the end
// everything is there once, on her side and on Bob's.
//   c_store begin URL FOLDER    kills itself
//   c_store end URL FOLDER      afterwards; FOLDER is the same

#define _POSIX_C_SOURCE 200809L
#include <arpa/inet.h>
#include <cjson/cJSON.h>
#include <signal.h>
#include <stdarg.h>
#include <stdbool.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <time.h>
#include <unistd.h>

#include "VexIMLib/C/vexim.h"

#define WITH_BOB "{\"kind\":\"friend\",\"id\":\"bob\"}"

enum { kPatience = 60, kMaxList = 64 };  // seconds; messages

typedef struct {
    vexim_client client;
    int requests;
    cJSON* list[kMaxList];  // the observed messages
    int count;
    double missed;  // of the last catching up; -1: none yet
} User;

static const char* url;

static void require(bool condition, const char* what) {
    if (condition) return;
    fprintf(stderr, "c_store: %s\n", what);
    exit(1);
}

static double now(void) {
    struct timespec time;
    clock_gettime(CLOCK_MONOTONIC, &time);
    return (double)time.tv_sec + (double)time.tv_nsec / 1e9;
}

static const cJSON* get(const cJSON* object, const char* name) {
    return cJSON_GetObjectItemCaseSensitive(object, name);
}
static double number(const cJSON* object, const char* name) {
    return cJSON_GetNumberValue(get(object, name));
}
static const char* text(const cJSON* object, const char* name) {
    const char* value = cJSON_GetStringValue(get(object, name));
    return value != NULL ? value : "";
}

/// As the page says: what was removed, from the last to the first; what was inserted, from the
/// first to the last; what has changed.
static void apply(User* user, const cJSON* change) {
    if (cJSON_IsTrue(get(change, "whole"))) {
        for (int i = 0; i < user->count; ++i) cJSON_Delete(user->list[i]);
        user->count = 0;
    }
    for (int i = cJSON_GetArraySize(get(change, "removed")) - 1; i >= 0; --i) {
        const int position =
            (int)cJSON_GetNumberValue(cJSON_GetArrayItem(get(change, "removed"), i));
        require(position < user->count, "a position to remove that is not in the list");
        cJSON_Delete(user->list[position]);
        memmove(&user->list[position], &user->list[position + 1],
                (size_t)(--user->count - position) * sizeof *user->list);
    }
    const cJSON* one;
    cJSON_ArrayForEach(one, get(change, "inserted")) {
        const int position = (int)number(one, "position");
        require(position <= user->count && user->count < kMaxList,
                "a position to insert at that is not in the list");
        memmove(&user->list[position + 1], &user->list[position],
                (size_t)(user->count++ - position) * sizeof *user->list);
        user->list[position] = cJSON_Duplicate(get(one, "message"), true);
    }
    cJSON_ArrayForEach(one, get(change, "changed")) {
        const int position = (int)number(one, "position");
        require(position < user->count, "a changed position that is not in the list");
        cJSON_Delete(user->list[position]);
        user->list[position] = cJSON_Duplicate(get(one, "message"), true);
    }
    require(user->count == (int)number(change, "count"),
            "the list has another length than the change says");
}

static cJSON* receive(User* user) {
    cJSON* item = cJSON_Parse(vexim_receive(user->client, 1));
    if (strcmp(text(item, "name"), "observedMessagesDidChange") == 0) apply(user, item);
    if (strcmp(text(item, "name"), "conversationsDidCatchUp") == 0)
        user->missed = number(item, "missedCount");
    return item;
}

/// Sends a request, its JSON without the braces, and gives the result.
static cJSON* ask(User* user, const char* pattern, ...) {
    char request[2048];
    const int extra = ++user->requests;
    int length = snprintf(request, sizeof request, "{\"@extra\":%d,", extra);
    va_list arguments;
    va_start(arguments, pattern);
    length += vsnprintf(request + length, sizeof request - (size_t)length, pattern, arguments);
    va_end(arguments);
    snprintf(request + length, sizeof request - (size_t)length, "}");
    vexim_send(user->client, request);
    for (const double end = now() + kPatience; now() < end;) {
        cJSON* item = receive(user);
        const bool isAnswer =
            strcmp(text(item, "@type"), "event") != 0 && (int)number(item, "@extra") == extra;
        cJSON* result = isAnswer ? cJSON_DetachItemFromObject(item, "result") : NULL;
        if (isAnswer && result == NULL)
            fprintf(stderr, "%s: %s\n", request, text(get(item, "error"), "description"));
        cJSON_Delete(item);
        if (isAnswer) {
            require(result != NULL, "a request failed");
            return result;
        }
    }
    require(false, "a request was not answered");
    return NULL;
}

static void tell(User* user, const char* request) { cJSON_Delete(ask(user, "%s", request)); }

static int inState(const User* user, const char* state) {
    int found = 0;
    for (int i = 0; i < user->count; ++i) found += strcmp(text(user->list[i], "state"), state) == 0;
    return found;
}

static void awaitConfirmed(User* user, int expected) {
    for (const double end = now() + kPatience;
         inState(user, "confirmed") < expected && now() < end;)
        cJSON_Delete(receive(user));
    require(inState(user, "confirmed") == expected && user->count == expected,
            "not everything is confirmed");
}

static void awaitText(User* user, const char* words) {
    bool heard = false;
    for (const double end = now() + kPatience; !heard && now() < end;) {
        cJSON* item = receive(user);
        heard = strcmp(text(item, "@type"), "event") == 0 &&
                strcmp(text(get(item, "message"), "text"), words) == 0;
        cJSON_Delete(item);
    }
    require(heard, "a message did not come");
}

static User make(const char* installation) {
    char configuration[512];
    snprintf(
        configuration, sizeof configuration,
        "{\"appId\":\"demo-app\",\"clientKey\":\"demo-key\",\"installationId\":\"%s\",\"socketURL\":\"%s\",\"reconnectWait\":1}",
        installation, url);
    User user = {.client = vexim_create(configuration), .missed = -1};
    return user;
}

static User openStore(const char* folder) {
    User alice = make("alice's");
    cJSON_Delete(ask(
        &alice, "\"@op\":\"VXIMConversations.open\",\"path\":\"%s\",\"userId\":\"alice\"", folder));
    tell(&alice, "\"@op\":\"VXIMMessageStore.observeMessages\",\"limit\":50,\"id\":" WITH_BOB);
    return alice;
}

static void sendText(User* user, const char* words) {
    cJSON* queued =
        ask(user,
            "\"@op\":\"VXIMConversations.sendText\",\"conversation\":" WITH_BOB ",\"text\":\"%s\"",
            words);
    require(
        strcmp(text(queued, "state"), "queued") == 0 && strcmp(text(queued, "text"), words) == 0,
        "a text was not queued");
    cJSON_Delete(queued);
}

/// Lets the service cut Alice's connections.
static void cut(void) {
    int port = 0;
    require(sscanf(url, "http://127.0.0.1:%d", &port) == 1, "the service is not on this machine");
    const struct sockaddr_in address = {.sin_family = AF_INET,
                                        .sin_port = htons((unsigned short)port),
                                        .sin_addr.s_addr = htonl(INADDR_LOOPBACK)};
    const int connection = socket(AF_INET, SOCK_STREAM, 0);
    require(connect(connection, (const struct sockaddr*)&address, sizeof address) == 0,
            "no connection to the service");
    const char request[] =
        "POST /_control/drop HTTP/1.1\r\nHost: localhost\r\nContent-Type: application/json\r\nContent-Length: 16\r\n"
        "Connection: close\r\n\r\n{\"user\":\"alice\"}";
    require(write(connection, request, sizeof request - 1) == (ssize_t)sizeof request - 1,
            "the service takes no request");
    char answer[4096];
    ssize_t length = 0;
    for (ssize_t more;
         (more = read(connection, answer + length, sizeof answer - 1 - (size_t)length)) > 0;)
        length += more;
    answer[length] = '\0';
    require(strstr(answer, "{\"connections\":1}") != NULL,
            "the service did not cut the connection");
    close(connection);
}

static void begin(const char* folder) {
    User alice = openStore(folder);
    sendText(&alice, "queued before the login");
    tell(&alice, "\"@op\":\"loginWithUserId\",\"userId\":\"alice\"");
    awaitConfirmed(&alice, 1);
    sendText(&alice, "sent into the cut");
    cut();
    sendText(&alice, "queued without a connection");
    awaitConfirmed(&alice, 3);
    tell(&alice, "\"@op\":\"pause\"");
    sendText(&alice, "queued before the end");
    raise(SIGKILL);
}

/// How often Bob has this text in his history.
static int atBob(const cJSON* history, const char* words) {
    int found = 0;
    const cJSON* one;
    cJSON_ArrayForEach(one, history) found += strcmp(text(one, "text"), words) == 0;
    return found;
}

static void end(const char* folder) {
    User bob = make("bob's");
    tell(&bob, "\"@op\":\"loginWithUserId\",\"userId\":\"bob\"");
    tell(
        &bob,
        "\"@op\":\"sendMessageToFriend\",\"friendId\":\"alice\",\"message\":{\"text\":\"while you were away\"}");
    awaitText(&bob, "while you were away");  // its echo: the service has it

    User alice = openStore(folder);
    cJSON* none = ask(&alice, "\"@op\":\"VXIMMessageStore.message\",\"localId\":1");
    require(cJSON_IsNull(none), "a message that never was");
    cJSON_Delete(none);
    while (alice.count == 0) cJSON_Delete(receive(&alice));
    require(alice.count == 4 && inState(&alice, "confirmed") == 3,
            "the killed process left something else");
    tell(&alice, "\"@op\":\"loginWithUserId\",\"userId\":\"alice\"");
    awaitConfirmed(&alice, 5);
    while (alice.missed < 0) cJSON_Delete(receive(&alice));
    require(alice.missed == 1, "the one missed message was not counted");

    // Pages, from both ends.
    cJSON* newest =
        ask(&alice, "\"@op\":\"VXIMMessageStore.messagesBefore\",\"limit\":2,\"id\":" WITH_BOB);
    const cJSON* edge = cJSON_GetArrayItem(newest, 0);
    cJSON* older = ask(&alice,
                       "\"@op\":\"VXIMMessageStore.messagesBefore\",\"limit\":10,\"id\":" WITH_BOB
                       ",\"position\":{\"sentAtMillis\":%.0f,\"localId\":%.0f}",
                       number(edge, "sentAtMillis"), number(edge, "localId"));
    cJSON* later = ask(&alice,
                       "\"@op\":\"VXIMMessageStore.messagesAfter\",\"limit\":10,\"id\":" WITH_BOB
                       ",\"position\":{\"sentAtMillis\":%.0f,\"localId\":%.0f}",
                       number(edge, "sentAtMillis"), number(edge, "localId"));
    require(cJSON_GetArraySize(newest) == 2 && cJSON_GetArraySize(older) == 3 &&
                cJSON_GetArraySize(later) == 1,
            "the pages");
    cJSON* found = ask(&alice, "\"@op\":\"VXIMMessageStore.search\",\"text\":\"queued con*\"");
    require(cJSON_GetArraySize(found) == 1, "the search");

    tell(&alice, "\"@op\":\"VXIMMessageStore.setDraft\",\"draft\":\"dear\",\"id\":" WITH_BOB);
    cJSON* before = ask(&alice, "\"@op\":\"VXIMMessageStore.conversation\",\"id\":" WITH_BOB);
    tell(&alice, "\"@op\":\"VXIMMessageStore.markRead\",\"id\":" WITH_BOB);
    cJSON* after = ask(&alice, "\"@op\":\"VXIMMessageStore.conversation\",\"id\":" WITH_BOB);
    require(number(before, "unreadCount") == 1 && number(after, "unreadCount") == 0,
            "the unread messages");
    require(strcmp(text(after, "draft"), "dear") == 0, "the draft");
    cJSON* exported =
        ask(&alice, "\"@op\":\"VXIMMessageStore.exportJSONLines\",\"path\":\"%s/export.jsonl\"",
            folder);
    require(cJSON_GetNumberValue(exported) == 5, "the export");

    cJSON* history = ask(
        &bob,
        "\"@op\":\"VXIMUser.getLatestChatsWithFriend\",\"friendId\":\"alice\",\"limit\":50,\"timestamp\":%lld",
        (long long)time(NULL) + 100);
    require(cJSON_GetArraySize(history) == 5, "the service has other messages");
    for (int i = 0; i < alice.count; ++i)
        require(atBob(history, text(alice.list[i], "text")) == 1, "a message is not there once");

    tell(&alice, "\"@op\":\"VXIMMessageStore.close\"");
    cJSON* const all[] = {newest, older, later, found, before, after, exported, history};
    for (size_t i = 0; i < sizeof all / sizeof *all; ++i) cJSON_Delete(all[i]);
    for (int i = 0; i < alice.count; ++i) cJSON_Delete(alice.list[i]);
    vexim_free(alice.client);
    vexim_free(bob.client);
    puts("5 messages, each of them once");
}

int main(int argc, char** argv) {
    require(argc == 4, "usage: c_store begin|end URL FOLDER");
    url = argv[2];
    if (strcmp(argv[1], "begin") == 0) begin(argv[3]);
    end(argv[3]);
    return 0;
}
