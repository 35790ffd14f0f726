// Linked into a test program, this stands in for the system's name lookup: for names under "blocked.test" it never answers,
// as with a name server that is gone. Every other name goes to the system.

#include <dlfcn.h>
#include <netdb.h>
#include <unistd.h>

#include <cstring>

extern "C" int getaddrinfo(const char* node, const char* service, const addrinfo* hints, addrinfo** result) {
    const bool numericOnly = hints && (hints->ai_flags & AI_NUMERICHOST);
    while (node && std::strstr(node, "blocked.test") && !numericOnly) ::pause();
    using Lookup = int (*)(const char*, const char*, const addrinfo*, addrinfo**);
    static const auto system = reinterpret_cast<Lookup>(::dlsym(RTLD_NEXT, "getaddrinfo"));
    return system(node, service, hints, result);
}
