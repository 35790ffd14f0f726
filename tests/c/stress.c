// Hostile texts into every operation from several threads, clients that are freed at random
// moments, and many clients one after the other. Checks that each request is answered once and that
// nothing is left; sanitizers check the rest. It works in a folder of its own, where files come and
// go.
//   c_stress URL API-FILE SECONDS CLIENTS

#define _XOPEN_SOURCE 700
#include <cjson/cJSON.h>
#include <dirent.h>
#include <ftw.h>
#include <pthread.h>
#include <stdatomic.h>
#include <stdbool.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

#include "VexIMLib/C/vexim.h"

enum { kSlots = 3, kSenders = 3, kMaxRequests = 1 << 20, kMaxOperations = 128 };

typedef struct {
    // sending under it, freeing alone: then it is known what must be answered
    pthread_rwlock_t lock;
    _Atomic vexim_client client;
} Slot;

static Slot slots[kSlots];
static atomic_uchar answered[kMaxRequests];
static atomic_int sent;
static atomic_bool over;
static char* operations[kMaxOperations];
static char* arguments[kMaxOperations][16];
static int operationCount;
static const char* url;

static void require(bool condition, const char* what) {
    if (condition) return;
    fprintf(stderr, "c_stress: %s\n", what);
    abort();
}

static double now(void) {
    struct timespec time;
    clock_gettime(CLOCK_MONOTONIC, &time);
    return (double)time.tv_sec + (double)time.tv_nsec / 1e9;
}

static unsigned next(unsigned* state) { return (*state = *state * 1664525U + 1013904223U) >> 8; }

static const char* const kValues[] = {
    "null",
    "1",
    "2",
    "{\"kind\":\"friend\",\"id\":\"bob\"}",
    "{\"kind\":\"room\",\"id\":5}",
    "{\"kind\":\"system\"}",
    "{\"sentAtMillis\":-9223372036854775808,\"localId\":1}",
    "\":memory:\"",
    "true",
    "0",
    "-1",
    "2147483648",
    "18446744073709551615",
    "1e308",
    "-0.5",
    "\"\"",
    "\"alice\"",
    "\"demo-group\"",
    "\"\\u0000\"",
    "\"../..?x#y\"",
    "\"\\ud800\"",
    "\"\xff\xfe\"",
    "[]",
    "[[]]",
    "[\"bob\",7]",
    "{}",
    "{\"text\":\"hi\"}",
    "{\"text\":5}",
    "{\"mediaType\":1,\"attachmentData\":\"aGk=\"}",
    "{\"mediaType\":1,\"attachmentData\":\"?\"}",
    "{\"mediaType\":9,\"attachmentPath\":\"/nowhere\"}",
    "{\"payload\":{\"from\":[],\"to\":{\"id\":{},\"type\":\"x\"}}}",
    "{\"receiver\":{\"type\":-3,\"groupId\":\"\"}}",
    "{\"receiver\":{\"type\":99,\"userId\":1}}",
    "{\"a\":{\"b\":[null,1e400]}}",
    "{\"a\":NaN}",
    "{\"\":\"\",\"\":1}",
    "[",
    "\"\\x\""};

/// A text with this "@extra", about one time in eight not even JSON; the room is enough for any.
static void makeRequest(char* text, size_t room, int extra, unsigned* state) {
    const int operation = (int)(next(state) % (unsigned)operationCount);
    int length =
        snprintf(text, room, "{\"@extra\":%d,\"@op\":\"%s\"", extra, operations[operation]);
    if (next(state) % 4 == 0)
        length +=
            snprintf(text + length, room - (size_t)length, ",\"@timeout\":%u", next(state) % 3);
    for (int i = 0; i < 16 && arguments[operation][i] != NULL; ++i) {
        if (next(state) % 8 == 0) continue;
        // The last ones make the text no JSON.
        const unsigned known = sizeof kValues / sizeof *kValues - (next(state) % 8 ? 6 : 0);
        const char* value = kValues[next(state) % known];
        length += snprintf(text + length, room - (size_t)length, ",\"%s\":%s",
                           arguments[operation][i], value);
    }
    if (next(state) % 16 == 0)
        length += snprintf(text + length, room - (size_t)length, ",\"surprise\":1");
    snprintf(text + length, room - (size_t)length, "}");
    if (next(state) % 32 == 0) text[next(state) % strlen(text)] = (char)(1 + next(state) % 255);
}

static void* sendAll(void* seed) {
    unsigned state = (unsigned)(uintptr_t)seed;
    char text[4096];
    while (!over) {
        const int extra = atomic_fetch_add(&sent, 1);
        if (extra >= kMaxRequests) break;
        makeRequest(text, sizeof text, extra, &state);
        Slot* slot = &slots[next(&state) % kSlots];
        pthread_rwlock_rdlock(&slot->lock);
        vexim_send(slot->client, text);
        const char* answer = vexim_execute(slot->client, text);
        require(answer != NULL && strstr(answer, "\"@type\":\"error\"") != NULL,
                "a request for vexim_send was executed");
        pthread_rwlock_unlock(&slot->lock);
        if (extra % 16 == 0) vexim_execute(slot->client, "{\"@op\":\"diagnose\"}");
    }
    return NULL;
}

static atomic_int without;   // answers without a number: the text was not JSON
static atomic_int unusable;  // clients that begin with such an answer

static bool receiveOne(vexim_client client, double seconds) {
    const char* text = vexim_receive(client, seconds);
    if (text == NULL) return false;
    if (strncmp(text, "{\"@type\":\"event\"", 16) == 0) return true;
    const char* extra = strstr(text, "\"@extra\":");
    require(extra != NULL, "an answer without @extra");
    char* end = NULL;
    const long number = strtol(extra + 9, &end, 10);
    if (end == extra + 9 || *end != ',' || number < 0 || number >= kMaxRequests) {
        ++without;
        return true;
    }
    require(atomic_fetch_add(&answered[number], 1) < 2, "a request was answered again and again");
    return true;
}

static vexim_client makeClient(unsigned kind) {
    char configuration[512];
    snprintf(
        configuration, sizeof configuration,
        "{\"appId\":\"demo-app\",\"clientKey\":\"demo-key\",\"installationId\":\"i\",\"socketURL\":\"%s\",\"notifications\":%s}",
        kind % 2 ? url : "http://127.0.0.1:9", kind % 3 ? "true" : "false");
    if (kind % 8 == 7) ++unusable;
    return vexim_create(kind % 8 == 7 ? "[]" : configuration);
}

/// One that has a store, so that requests find one; with the library that is without it, an error
/// is the answer.
static vexim_client makeHostile(unsigned kind) {
    const vexim_client client = makeClient(kind);
    const int extra = atomic_fetch_add(&sent, 1);
    if (extra >= kMaxRequests) return client;
    char request[128];
    snprintf(
        request, sizeof request,
        "{\"@extra\":%d,\"@op\":\"VXIMConversations.open\",\"path\":\":memory:\",\"userId\":\"alice\"}",
        extra);
    vexim_send(client, request);
    return client;
}

static void freeAndDrain(Slot* slot, unsigned kind) {
    pthread_rwlock_wrlock(&slot->lock);
    const vexim_client former = slot->client;
    vexim_free(former);
    slot->client = makeHostile(kind);
    pthread_rwlock_unlock(&slot->lock);
    while (receiveOne(former, 1)) continue;
    require(vexim_receive(former, 1) == NULL, "a client that is gone gave something");
    vexim_free(former);
}

static void* receiveAll(void* argument) {
    Slot* slot = argument;
    unsigned state = (unsigned)(slot - slots) + 77;
    for (unsigned round = 0; !over; ++round) {
        for (unsigned left = next(&state) % 300; left > 0 && !over; --left)
            receiveOne(slot->client, 0.02);
        freeAndDrain(slot, round + (unsigned)(slot - slots));
    }
    return NULL;
}

static void readOperations(const char* path) {
    FILE* file = fopen(path, "rb");
    require(file != NULL, "no API file");
    static char text[1 << 20];
    text[fread(text, 1, sizeof text - 1, file)] = '\0';
    fclose(file);
    cJSON* api = cJSON_Parse(text);
    const cJSON* one;
    cJSON_ArrayForEach(one, cJSON_GetObjectItem(cJSON_GetObjectItem(api, "$defs"), "requests")) {
        require(operationCount < kMaxOperations, "more operations than expected");
        operations[operationCount] = strdup(one->string);
        const cJSON* parameter;
        int i = 0;
        cJSON_ArrayForEach(parameter, cJSON_GetObjectItem(one, "properties")) {
            if (parameter->string[0] != '@' && i < 15)
                arguments[operationCount][i++] = strdup(parameter->string);
        }
        ++operationCount;
    }
    require(operationCount > 60, "the API file lists too few operations");
    cJSON_Delete(api);
}

static void beHostile(double seconds) {
    pthread_t senders[kSenders];
    pthread_t receivers[kSlots];
    for (int i = 0; i < kSlots; ++i) {
        pthread_rwlock_init(&slots[i].lock, NULL);
        slots[i].client = makeHostile((unsigned)i);
        pthread_create(&receivers[i], NULL, receiveAll, &slots[i]);
    }
    for (uintptr_t i = 0; i < kSenders; ++i)
        pthread_create(&senders[i], NULL, sendAll, (void*)(i + 1));
    const vexim_client idle = vexim_create(NULL);
    for (const double end = now() + seconds; now() < end && sent < kMaxRequests;) {
        require(vexim_receive(0, 0.01) == NULL, "no client gave something");
        require(vexim_receive(idle, 0.02) == NULL, "a client that does nothing gave something");
        vexim_send(-1, "{}");
    }
    over = true;
    vexim_free(idle);
    for (int i = 0; i < kSenders; ++i) pthread_join(senders[i], NULL);
    for (int i = 0; i < kSlots; ++i) {
        pthread_join(receivers[i], NULL);
        freeAndDrain(&slots[i], 0);
        freeAndDrain(&slots[i], 0);
        vexim_free(slots[i].client);
        while (receiveOne(slots[i].client, 1)) continue;
    }
    const int all = sent < kMaxRequests ? (int)sent : kMaxRequests;
    int answers = 0;
    int twice = 0;
    for (int i = 0; i < kMaxRequests; ++i) {
        answers += answered[i];
        twice += answered[i] > 1;
    }
    printf("%d requests, %d answers, %d of them without a number; %d unusable clients\n", all,
           answers + without - unusable, without - unusable, (int)unusable);
    fflush(stdout);
    require(answers + without - unusable == all, "there are not as many answers as requests");
    // a damaged text may carry another's number
    require(twice <= all / 500, "requests were answered twice");
}

/// A login without a time limit over a connection that fails is answered with the connection's
/// error, and so is the next.
static void failToConnect(void) {
    const vexim_client client = makeClient(0);
    for (int i = 0; i < 2; ++i) {
        vexim_send(client, "{\"@op\":\"loginWithUserId\",\"userId\":\"alice\"}");
        const char* text = NULL;
        do text = vexim_receive(client, 60);
        while (text != NULL && strstr(text, "\"@type\":\"error\"") == NULL);
        require(text != NULL && strstr(text, "VXIMConnectionErrorDomain") != NULL,
                "a login is not told that its connection failed");
    }
    vexim_free(client);
}

static int descriptors(void) {
    DIR* directory = opendir("/proc/self/fd");
    int count = 0;
    while (readdir(directory) != NULL) ++count;
    closedir(directory);
    return count;
}

static long residentKiB(void) {
    long size = 0;
    long resident = 0;
    FILE* file = fopen("/proc/self/statm", "r");
    require(file != NULL && fscanf(file, "%ld %ld", &size, &resident) == 2, "no statm");
    fclose(file);
    return resident * sysconf(_SC_PAGESIZE) / 1024;
}

static void makeMany(int count) {
    for (int i = 0; i < count; ++i) {
        const vexim_client client = makeClient(i % 2 ? 0U : 2U);  // nothing listens there
        vexim_execute(client, "{\"@op\":\"descriptor\"}");
        if (i % 3 == 0)
            vexim_send(client, "{\"@op\":\"loginWithUserId\",\"userId\":\"alice\",\"@extra\":1}");
        if (i % 5 == 0) vexim_send(client, "{\"@op\":\"currentUser\"}");
        if (i % 7 == 0) vexim_receive(client, 0);
        vexim_free(client);
        if (i % 2 == 0) {
            while (vexim_receive(client, 0) != NULL) continue;
        }
    }
    // What was freed goes on the library's thread, in order: once a last client has answered, it is
    // gone.
    const vexim_client last = vexim_create(NULL);
    vexim_send(last, "{\"@op\":\"currentUser\"}");
    require(vexim_receive(last, 60) != NULL, "the last client does not answer");
    vexim_free(last);
}

static int removeOne(const char* path, const struct stat* status, int type, struct FTW* where) {
    (void)status, (void)type, (void)where;
    return remove(path);
}

int main(int argc, char** argv) {
    require(argc == 5, "usage: c_stress URL API-FILE SECONDS CLIENTS");
    url = argv[1];
    readOperations(argv[2]);
    const int clients = atoi(argv[4]);
    char folder[] = "/tmp/c_stress.XXXXXX";
    require(mkdtemp(folder) != NULL && chdir(folder) == 0 && mkdir("inner", 0700) == 0 &&
                chdir("inner") == 0,
            "no folder");
    vexim_execute(0, "{\"@op\":\"setLog\"}");
    vexim_execute(0, "{\"@op\":\"setKeepsFinishedDelegates\",\"keeps\":false}");

    failToConnect();
    makeMany(clients / 10);
    const int descriptorsBefore = descriptors();
    const long memoryBefore = residentKiB();
    makeMany(clients);
    // The last sockets are still being closed.
    const vexim_client idle = vexim_create(NULL);
    for (const double end = now() + 120; descriptors() > descriptorsBefore + 8 && now() < end;)
        vexim_receive(idle, 0.05);
    vexim_free(idle);
    const long growth = residentKiB() - memoryBefore;
    printf("%d clients: %d descriptors more, %ld KiB more\n", clients,
           descriptors() - descriptorsBefore, growth);
    require(descriptors() <= descriptorsBefore + 8, "descriptors are left");
    if (clients >= 10000) require(growth < 20 * 1024, "memory is left");

    beHostile(atof(argv[3]));
    for (int i = 0; i < operationCount; ++i) {
        free(operations[i]);
        for (int j = 0; j < 16; ++j) free(arguments[i][j]);
    }
    // Stores that were freed just now may still be writing: what they leave is the system's to
    // remove.
    nftw(folder, removeOne, 16, FTW_DEPTH | FTW_PHYS);
    return 0;
}
