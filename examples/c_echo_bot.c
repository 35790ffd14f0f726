// A bot that repeats what its friends say, in C with the JSON library cJSON. It leaves when
// somebody says "bye".
//   c_echo_bot URL

#include <VexIMLib/C/vexim.h>
#include <cjson/cJSON.h>
#include <stdio.h>
#include <string.h>

static const char* text_of(const cJSON* object, const char* name) {
    const char* text = cJSON_GetStringValue(cJSON_GetObjectItemCaseSensitive(object, name));
    return text != NULL ? text : "";
}

static void say(vexim_client client, const char* to, const char* words) {
    cJSON* request = cJSON_CreateObject();
    cJSON_AddStringToObject(request, "@op", "sendMessageToFriend");
    cJSON_AddStringToObject(request, "friendId", to);
    cJSON_AddStringToObject(cJSON_AddObjectToObject(request, "message"), "text", words);
    char* text = cJSON_PrintUnformatted(request);
    vexim_send(client, text);
    cJSON_free(text);
    cJSON_Delete(request);
}

int main(int argc, char** argv) {
    if (argc != 2) return 2;
    char configuration[1000];
    snprintf(
        configuration, sizeof configuration,
        "{\"appId\": \"demo-app\", \"clientKey\": \"demo-key\", \"installationId\": \"bot\", \"socketURL\": \"%s\"}",
        argv[1]);
    vexim_client client = vexim_create(configuration);
    vexim_send(
        client,
        "{\"@op\": \"loginWithUserId\", \"userId\": \"bob\", \"@extra\": \"login\", \"@timeout\": 20}");
    puts("echoing");
    for (int over = 0; !over;) {
        // after a minute without anything: NULL, which gives an empty item
        cJSON* item = cJSON_Parse(vexim_receive(client, 60));
        const cJSON* message = cJSON_GetObjectItem(item, "message");
        const char* speaker = text_of(cJSON_GetObjectItem(item, "from"), "uid");
        const char* sender = text_of(cJSON_GetObjectItem(message, "sender"), "userId");
        if (strcmp(text_of(item, "@type"), "error") == 0) {
            fprintf(stderr, "%s\n", text_of(cJSON_GetObjectItem(item, "error"), "description"));
            over = strcmp(text_of(item, "@extra"), "login") == 0;
        } else if (strcmp(text_of(item, "name"), "clientDidReceiveMessageFromFriend") == 0 &&
                   strcmp(sender, speaker) == 0) {
            // The condition leaves out our own messages, which come back, too.
            say(client, speaker, text_of(message, "text"));
            over = strcmp(text_of(message, "text"), "bye") == 0;
        }
        fflush(stdout);
        cJSON_Delete(item);
    }
    // Wait for the last answer, because a freed client sends nothing.
    for (const char* text;
         (text = vexim_receive(client, 5)) != NULL && strstr(text, "\"@type\":\"answer\"") == NULL;)
        continue;
    vexim_free(client);
    return 0;
}
