// A C program that has only the C interface: it asks for the version, and for a store, which only
// one of the two libraries has.
//   c_only LIBRARY
#include <VexIMLib/C/vexim.h>
#include <stdio.h>
#include <string.h>

int main(int argc, char** argv) {
    if (argc != 2) return 2;
    const char* answer = vexim_execute(0, "{\"@op\": \"version\"}");
    puts(answer);
    if (strstr(answer, "\"@type\":\"answer\"") == NULL) return 1;

    const vexim_client client = vexim_create("{}");
    vexim_send(
        client,
        "{\"@op\": \"VXIMMessageStore.open\", \"path\": \":memory:\", \"userId\": \"alice\"}");
    answer = vexim_receive(client, 60);
    if (answer == NULL) return 1;
    puts(answer);
    const char* expected =
        strcmp(argv[1], "vexim-c-store") == 0 ? "\"store\":1" : "libvexim-c-store1";
    const int isAsExpected = strstr(answer, expected) != NULL;
    vexim_free(client);
    return isAsExpected ? 0 : 1;
}
