// Linked into a test program, this stands in for the system's name lookup: for names under
// "blocked.test" it never answers, as with a name server that is gone; those under "loopback.test"
// are this machine. Every other name goes to the system.

#include <dlfcn.h>
#include <netdb.h>
#include <unistd.h>

#include <cstring>
#include <string_view>

extern "C" int getaddrinfo(const char* node, const char* service, const addrinfo* hints,
                           addrinfo** result) {
    const bool numericOnly = hints && (hints->ai_flags & AI_NUMERICHOST);
    while (node && std::strstr(node, "blocked.test") && !numericOnly) ::pause();
    using Lookup = int (*)(const char*, const char*, const addrinfo*, addrinfo**);
    static const auto system = reinterpret_cast<Lookup>(::dlsym(RTLD_NEXT, "getaddrinfo"));
    std::string_view name = node ? node : "";
    if (name.ends_with('.')) name.remove_suffix(1);
    return system(name.ends_with("loopback.test") && !numericOnly ? "127.0.0.1" : node, service,
                  hints, result);
}
