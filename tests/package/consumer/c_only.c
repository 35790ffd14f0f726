// A C program that has only the C interface: it asks for the version.
#include <VexIMLib/C/vexim.h>
#include <stdio.h>
#include <string.h>

int main(void) {
    const char* answer = vexim_execute(0, "{\"@op\": \"version\"}");
    puts(answer);
    return strstr(answer, "\"@type\":\"answer\"") != NULL ? 0 : 1;
}
