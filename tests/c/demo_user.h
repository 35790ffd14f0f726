#pragma once

// A user of the demo: a client, the answers to its requests, and what it has heard.

#include <cjson/cJSON.h>
#include <stdarg.h>
#include <stdbool.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <time.h>

#include "VexIMLib/C/vexim.h"

enum { kMaxRequests = 64, kMaxLines = 256, kMedia = 4, kPatience = 30 };  // seconds

typedef struct {
    vexim_client client;
    int requests;
    cJSON* answers[kMaxRequests];  // by "@extra"
    char* lines[kMaxLines];        // what was heard
    int heard;
    cJSON* last[kMedia];  // the last message of each media type
    int percent;
} User;

static double now(void) {
    struct timespec time;
    timespec_get(&time, TIME_UTC);
    return (double)time.tv_sec + (double)time.tv_nsec / 1e9;
}

static const char* text(const cJSON* object, const char* name) {
    const char* value = cJSON_GetStringValue(cJSON_GetObjectItemCaseSensitive(object, name));
    return value != NULL ? value : "";
}

static const cJSON* get(const cJSON* object, const char* name) {
    return cJSON_GetObjectItemCaseSensitive(object, name);
}

static double number(const cJSON* object, const char* name) {
    return cJSON_GetNumberValue(get(object, name));
}

static char* format(const char* pattern, va_list arguments) {
    va_list again;
    va_copy(again, arguments);
    const int size = vsnprintf(NULL, 0, pattern, again);
    va_end(again);
    char* made = malloc((size_t)size + 1);
    vsnprintf(made, (size_t)size + 1, pattern, arguments);
    return made;
}

static void note(User* user, const char* pattern, ...) {
    va_list arguments;
    va_start(arguments, pattern);
    if (user->heard < kMaxLines) user->lines[user->heard++] = format(pattern, arguments);
    va_end(arguments);
}

static void noteMessage(User* user, const char* kind, const char* who, const cJSON* event) {
    const cJSON* message = get(event, "message");
    note(user, "%s%s%s%s%s: %s", kind, *who ? " " : "", who, *who ? ", " : "",
         *who ? text(get(message, "sender"), "userId") : "", text(message, "text"));
    const int media = (int)number(message, "mediaType");
    if (media < 0 || media >= kMedia) return;
    cJSON_Delete(user->last[media]);
    user->last[media] = cJSON_Duplicate(message, true);
}

static void noteEvent(User* user, const cJSON* event) {
    const char* name = text(event, "name");
    const cJSON* from = get(event, "from");
    if (strcmp(name, "clientDidReceiveMessageFromFriend") == 0)
        noteMessage(user, "friend", text(from, "uid"), event);
    if (strcmp(name, "clientDidReceiveMessageFromGroup") == 0)
        noteMessage(user, "group", text(from, "groupId"), event);
    if (strcmp(name, "clientDidReceiveMessageFromRoom") == 0)
        noteMessage(user, "room", text(from, "roomId"), event);
    if (strcmp(name, "clientDidReceiveSystemMessage") == 0) noteMessage(user, "system", "", event);
    if (strcmp(name, "clientFriendDidOnline") == 0)
        note(user, "online %s", text(get(event, "info"), "uid"));
    if (strcmp(name, "clientFriendDidOffline") == 0)
        note(user, "offline %s", text(get(event, "info"), "uid"));
    if (strcmp(name, "progress") == 0) user->percent = (int)number(event, "percent");
}

/// Takes what comes next, if anything does in time.
static void receive(User* user, double seconds) {
    cJSON* item = cJSON_Parse(vexim_receive(user->client, seconds));
    if (item == NULL) return;
    if (strcmp(text(item, "@type"), "event") == 0) {
        noteEvent(user, item);
        cJSON_Delete(item);
        return;
    }
    const int extra = (int)number(item, "@extra");
    // one answer for each request
    if (extra < 0 || extra >= kMaxRequests || user->answers[extra] != NULL) abort();
    user->answers[extra] = item;
}

/// Sends a request, its JSON without the braces, and waits for the answer; NULL when none comes.
static const cJSON* ask(User* user, const char* pattern, ...) {
    va_list arguments;
    va_start(arguments, pattern);
    char* inside = format(pattern, arguments);
    va_end(arguments);
    const size_t room = strlen(inside) + 64;
    char* request = malloc(room);
    const int extra = user->requests++;
    snprintf(request, room, "{\"@extra\":%d,%s}", extra, inside);
    vexim_send(user->client, request);
    free(request);
    free(inside);
    for (const double end = now() + kPatience; user->answers[extra] == NULL && now() < end;)
        receive(user, 1);
    return user->answers[extra];
}

static void begin(User* user, const char* url, const char* installation) {
    char configuration[512];
    snprintf(
        configuration, sizeof configuration,
        "{\"appId\":\"demo-app\",\"clientKey\":\"demo-key\",\"installationId\":\"%s\",\"socketURL\":\"%s\",\"nsp\":\"/chat\"}",
        installation, url);
    user->client = vexim_create(configuration);
}

static void end(User* user) {
    vexim_free(user->client);
    for (int i = 0; i < kMaxRequests; ++i) cJSON_Delete(user->answers[i]);
    for (int i = 0; i < user->heard; ++i) free(user->lines[i]);
    for (int i = 0; i < kMedia; ++i) cJSON_Delete(user->last[i]);
}
