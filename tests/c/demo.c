// The story that `vexim demo` tells, told through the C interface: two users log in, chat, send
// files, work with resources, pause and log out. One line a step; the status is 0 when all held.
//   c_demo URL FOLDER

#include <cjson/cJSON.h>
#include <stdbool.h>
#include <stdint.h>
#include <stdio.h>
#include <string.h>

#include "demo_user.h"

static int steps;
static int failures;

static bool tell(const char* step, bool held, const char* seen) {
    ++steps;
    if (!held) ++failures;
    printf(held ? "  ok    %s\n" : "  FAIL  %s: saw %s\n", step, seen);
    fflush(stdout);
    return held;
}

static const char* shown(const cJSON* item) {
    static char line[2000];
    if (item == NULL || !cJSON_PrintPreallocated((cJSON*)(uintptr_t)item, line, sizeof line, false))
        return "nothing";
    return line;
}

static bool hasWorked(const cJSON* answer) { return strcmp(text(answer, "@type"), "answer") == 0; }

static bool succeeds(const char* step, const cJSON* answer) {
    return tell(step, hasWorked(answer), shown(answer));
}

static void refuses(const char* step, const cJSON* answer, const char* domain,
                    const char* description) {
    const cJSON* error = get(answer, "error");
    const bool fits = description == NULL || strcmp(text(error, "description"), description) == 0;
    tell(step, strcmp(text(error, "domain"), domain) == 0 && fits, shown(answer));
}

static int count(const User* user, const char* line) {
    int found = 0;
    for (int i = 0; i < user->heard; ++i) found += strcmp(user->lines[i], line) == 0;
    return found;
}

static void hears(const char* step, User* user, const char* line, int times) {
    for (const double end = now() + kPatience; count(user, line) < times && now() < end;)
        receive(user, 1);
    tell(step, count(user, line) >= times,
         user->heard > 0 ? user->lines[user->heard - 1] : "nothing");
}

static void reaches(const char* step, User* user, int status) {
    int seen = -1;
    for (const double end = now() + kPatience; seen != status && now() < end;) {
        cJSON* answer = cJSON_Parse(vexim_execute(user->client, "{\"@op\":\"status\"}"));
        seen = (int)number(answer, "result");
        cJSON_Delete(answer);
        if (seen != status) receive(user, 0.1);
    }
    tell(step, seen == status, "another status");
}

static bool contains(const cJSON* list, const char* name, const char* value) {
    const cJSON* element;
    cJSON_ArrayForEach(element, list) {
        if (strcmp(text(element, name), value) == 0) return true;
    }
    return false;
}

static bool tellLogin(User* alice, User* bob) {
    puts("Logging in");
    if (!succeeds("alice logs in with her user id",
                  ask(alice, "\"@op\":\"loginWithUserId\",\"userId\":\"alice\"")))
        return false;
    reaches("her session is open", alice, 2);
    const char* login = "\"@op\":\"loginWithUsername\",\"username\":\"bob\",\"password\":\"%s\"";
    refuses("bob is refused with a wrong password", ask(bob, login, "not-his-password"),
            "VXIMErrorDomain", NULL);
    if (!succeeds("bob logs in with user name and password", ask(bob, login, "bob-secret")))
        return false;
    hears("alice sees bob come online", alice, "online bob", 1);
    return true;
}

static void tellChat(User* alice, User* bob) {
    puts("Chatting");
    const char* toFriend =
        "\"@op\":\"sendMessageToFriend\",\"friendId\":\"bob\",\"message\":{\"text\":\"hello, bob\"}";
    succeeds("alice sends a text to her friend bob", ask(alice, toFriend));
    hears("bob receives it from his friend alice", bob, "friend alice, alice: hello, bob", 1);
    hears("alice gets the echo of her own message", alice, "friend bob, alice: hello, bob", 1);
    const char* toGroup =
        "\"@op\":\"sendMessageToGroup\",\"groupId\":\"demo-group\",\"message\":{\"text\":\"hello, group\"}";
    succeeds("bob sends a text to the group", ask(bob, toGroup));
    hears("alice receives it from the group", alice, "group demo-group, bob: hello, group", 1);
    const char* toRoom =
        "\"@op\":\"sendMessageToRoom\",\"roomId\":\"demo-room\",\"message\":{\"text\":\"hello, room\"}";
    succeeds("alice sends a text to the room", ask(alice, toRoom));
    hears("bob receives it from the room", bob, "room demo-room, alice: hello, room", 1);
    const char* system =
        "\"@op\":\"sendSystemMessageToUser\",\"userId\":\"bob\",\"message\":{\"text\":\"maintenance at noon\"}";
    succeeds("a system message for bob is posted", ask(alice, system));
    hears("bob receives the system message", bob, "system: maintenance at noon", 1);
}

/// alice sends what `message` describes; bob receives it. The download's answer, or NULL.
static const cJSON* passOn(User* alice, User* bob, const char* what, int media, const char* message,
                           const char* path) {
    char step[64];
    snprintf(step, sizeof step, "alice sends %s", what);
    alice->percent = 0;
    succeeds(
        step,
        ask(alice,
            "\"@op\":\"sendMessageToFriend\",\"friendId\":\"bob\",\"progress\":true,\"message\":%s",
            message));
    tell("its upload was followed to the end", alice->percent == 100, "less");
    for (const double end = now() + kPatience; bob->last[media] == NULL && now() < end;)
        receive(bob, 1);
    if (!tell("bob receives it", bob->last[media] != NULL, "nothing")) return NULL;
    char* received = cJSON_PrintUnformatted(bob->last[media]);
    const cJSON* answer =
        ask(bob, "\"@op\":\"VXIMMessage.downloadAttachment\",\"message\":%s%s%s%s", received,
            path ? ",\"path\":\"" : "", path ? path : "", path ? "\"" : "");
    cJSON_free(received);
    return succeeds("bob downloads it", answer) ? answer : NULL;
}

static bool sameContents(const char* one, const char* other) {
    FILE* a = fopen(one, "rb");
    FILE* b = fopen(other, "rb");
    bool same = a != NULL && b != NULL;
    for (int c = 0; same && c != EOF;) {
        c = fgetc(a);
        same = fgetc(b) == c;
    }
    if (a != NULL) fclose(a);
    if (b != NULL) fclose(b);
    return same;
}

static void tellAttachments(User* alice, User* bob, const char* folder) {
    puts("Sending pictures and sound");
    const char* picture =
        "iVBORw0KGgoAAAANSUhEUgAAAAEAAAABCAYAAAAfFcSJAAAADUlEQVR42mP8z8BQDwAEhQGAhKmMIQAAAABJRU5ErkJggg==";
    char message[512];
    snprintf(message, sizeof message,
             "{\"mediaType\":1,\"attachmentName\":\"picture.png\",\"attachmentData\":\"%s\"}",
             picture);
    tell("a picture becomes a message", strlen(message) > strlen(picture), "none");
    const cJSON* downloaded = passOn(alice, bob, "the picture", 1, message, NULL);
    if (downloaded != NULL) {
        tell("byte for byte the same",
             strcmp(text(get(downloaded, "result"), "data"), picture) == 0, shown(downloaded));
    }

    char sound[256];
    char copy[256];
    snprintf(sound, sizeof sound, "%s/sound.wav", folder);
    snprintf(copy, sizeof copy, "%s/copy.wav", folder);
    FILE* file = fopen(sound, "wb");
    if (tell("a sound becomes a message", file != NULL, "no file")) {
        fputs("RIFF", file);
        for (int i = 0; i < 100000; ++i) fputc('\x55', file);
        fclose(file);
        snprintf(message, sizeof message, "{\"mediaType\":2,\"attachmentPath\":\"%s\"}", sound);
        if (passOn(alice, bob, "the sound", 2, message, copy) != NULL) {
            tell("byte for byte the same", sameContents(sound, copy), "other bytes");
        }
    }
    remove(sound);
    remove(copy);
}

static void tellUser(User* alice, User* bob) {
    const cJSON* friends =
        ask(alice, "\"@op\":\"VXIMUser.fetchFriendsWithDetail\",\"detail\":true");
    if (succeeds("alice fetches her friends", friends)) {
        bool isOnline = false;
        const cJSON* info;
        cJSON_ArrayForEach(info, get(friends, "result")) {
            if (strcmp(text(info, "uid"), "bob") == 0) isOnline = cJSON_IsTrue(get(info, "online"));
        }
        tell("bob is among them, online", isOnline, shown(friends));
    }
    succeeds(
        "alice sets an attribute of hers",
        ask(alice, "\"@op\":\"VXIMUser.updateAttributes\",\"attributes\":{\"mood\":\"fine\"}"));
    const cJSON* mood = ask(alice, "\"@op\":\"VXIMUser.getAttributeForKey\",\"key\":\"mood\"");
    if (succeeds("and reads it back", mood))
        tell("it is the same", strcmp(text(mood, "result"), "fine") == 0, shown(mood));

    const cJSON* history = ask(
        bob,
        "\"@op\":\"VXIMUser.getLatestChatsWithFriend\",\"friendId\":\"alice\",\"timestamp\":%.3f,\"limit\":20",
        now() + 1);
    if (succeeds("bob reads his history with alice", history)) {
        tell("her first text is in it", contains(get(history, "result"), "text", "hello, bob"),
             shown(history));
    }
}

static void tellGroup(User* alice, User* bob) {
    const char* create =
        "\"@op\":\"VXIMGroup.createWithBlock\",\"name\":\"Reading circle\",\"members\":[\"alice\"],\"owner\":\"alice\"";
    const cJSON* made = ask(alice, create);
    if (!succeeds("alice creates a group", made)) return;
    const char* id = text(get(made, "result"), "groupId");
    succeeds(
        "she adds bob",
        ask(alice, "\"@op\":\"VXIMGroup.addMembers\",\"id\":\"%s\",\"userIds\":[\"bob\"]", id));
    succeeds(
        "she renames it",
        ask(alice, "\"@op\":\"VXIMGroup.updateName\",\"id\":\"%s\",\"name\":\"Book club\"", id));
    const cJSON* fetched = ask(bob, "\"@op\":\"VXIMGroup.fetchWithBlock\",\"id\":\"%s\"", id);
    if (succeeds("bob fetches it", fetched)) {
        const cJSON* group = get(fetched, "result");
        const cJSON* members = get(group, "members");
        const bool both =
            cJSON_GetArraySize(members) == 2 &&
            strcmp(cJSON_GetStringValue(cJSON_GetArrayItem(members, 0)), "alice") == 0 &&
            strcmp(cJSON_GetStringValue(cJSON_GetArrayItem(members, 1)), "bob") == 0;
        tell("with its new name and both members",
             both && strcmp(text(group, "name"), "Book club") == 0, shown(fetched));
    }
    succeeds("alice deletes it",
             ask(alice, "\"@op\":\"VXIMGroup.deleteWithBlock\",\"id\":\"%s\"", id));
}

static void tellRoomPassengerAndSearch(User* alice, User* bob) {
    const cJSON* made =
        ask(bob, "\"@op\":\"VXIMRoom.createWithName\",\"name\":\"Lounge\",\"members\":[\"bob\"]");
    if (succeeds("bob creates a room", made)) {
        const char* id = text(get(made, "result"), "roomId");
        succeeds("he renames it",
                 ask(bob, "\"@op\":\"VXIMRoom.updateName\",\"id\":\"%s\",\"name\":\"Lobby\"", id));
        succeeds("he deletes it",
                 ask(bob, "\"@op\":\"VXIMRoom.deleteWithBlock\",\"id\":\"%s\"", id));
    }
    const cJSON* passenger = ask(
        alice,
        "\"@op\":\"VXIMPassenger.createOrUpdatePassengerWithAttributes\",\"attributes\":{\"name\":\"Visitor\"}");
    tell("a passenger comes aboard", *text(get(passenger, "result"), "pid") != '\0',
         shown(passenger));
    const cJSON* found =
        ask(alice, "\"@op\":\"VXIMQuery.findUserWithBlock\",\"where\":{\"city\":\"Oslo\"}");
    if (succeeds("a search for users in Oslo", found))
        tell("finds bob", contains(get(found, "result"), "uid", "bob"), shown(found));
}

static void tellPauseAndResume(User* alice, User* bob) {
    puts("Pausing and resuming");
    const char* toAlice =
        "\"@op\":\"sendMessageToFriend\",\"friendId\":\"alice\",\"message\":{\"text\":\"%s\"}";
    ask(bob, "\"@op\":\"pause\"");
    reaches("bob pauses", bob, 3);
    hears("alice sees bob go offline", alice, "offline bob", 1);
    refuses("a send while paused fails", ask(bob, toAlice, "can you hear me?"), "VXIMErrorDomain",
            "Message cannot send when connection disconnected");
    ask(bob, "\"@op\":\"resume\"");
    reaches("bob resumes", bob, 2);
    hears("alice sees bob come back", alice, "online bob", 2);
    succeeds("bob sends a text to alice", ask(bob, toAlice, "back again"));
    hears("alice receives it", alice, "friend bob, bob: back again", 1);
}

static void tellLogout(User* alice, User* bob) {
    puts("Logging out");
    succeeds("alice logs out", ask(alice, "\"@op\":\"logoutWithCompletion\""));
    reaches("her session is closed", alice, 6);
    hears("bob sees alice go offline", bob, "offline alice", 1);
    succeeds("bob logs out", ask(bob, "\"@op\":\"logoutWithCompletion\""));
}

int main(int argc, char** argv) {
    if (argc != 3) return fputs("usage: c_demo URL FOLDER\n", stderr), 2;
    static User alice;
    static User bob;
    begin(&alice, argv[1], "alices-device");
    begin(&bob, argv[1], "bobs-device");
    if (tellLogin(&alice, &bob)) {
        tellChat(&alice, &bob);
        tellAttachments(&alice, &bob, argv[2]);
        puts("Friends, groups, rooms, attributes, history, searches");
        tellUser(&alice, &bob);
        tellGroup(&alice, &bob);
        tellRoomPassengerAndSearch(&alice, &bob);
        tellPauseAndResume(&alice, &bob);
        tellLogout(&alice, &bob);
    }
    end(&alice);
    end(&bob);
    printf("%d of %d steps held\n", steps - failures, steps);
    return failures == 0 && steps == 56 ? 0 : 1;
}
