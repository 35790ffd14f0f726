// Talks to the page's bot: "hello" and "bye" must come back. Without a JSON library: it looks for
// what it expects in the texts.
//   c_talk URL

#include <stdio.h>
#include <string.h>

#include "VexIMLib/C/vexim.h"

/// Receives until a text holds both; 0 when none has in time.
static int await(vexim_client client, const char* one, const char* other) {
    for (const char* text; (text = vexim_receive(client, 20)) != NULL;) {
        if (strstr(text, one) != NULL && strstr(text, other) != NULL) return 1;
    }
    fprintf(stderr, "c_talk: %s with %s never came\n", one, other);
    return 0;
}

static int saysBack(vexim_client client, const char* words) {
    char text[200];
    snprintf(text, sizeof text,
             "{\"@op\":\"sendMessageToFriend\",\"friendId\":\"bob\",\"message\":{\"text\":\"%s\"}}",
             words);
    vexim_send(client, text);
    snprintf(text, sizeof text, "\"message\":{\"text\":\"%s\"", words);
    return await(client, "\"sender\":{\"type\":0,\"userId\":\"bob\"}", text);
}

int main(int argc, char** argv) {
    if (argc != 2) return 2;
    char text[500];
    snprintf(
        text, sizeof text,
        "{\"appId\":\"demo-app\",\"clientKey\":\"demo-key\",\"installationId\":\"i\",\"socketURL\":\"%s\"}",
        argv[1]);
    const vexim_client client = vexim_create(text);
    vexim_send(client, "{\"@op\":\"loginWithUserId\",\"userId\":\"alice\"}");
    if (!await(client, "clientDidLogin", "event")) return 1;
    puts("in");
    fflush(stdout);
    const int well = await(client, "clientFriendDidOnline", "\"bob\"") &&
                     saysBack(client, "hello") && saysBack(client, "bye");
    vexim_free(client);
    return well ? 0 : 1;
}
