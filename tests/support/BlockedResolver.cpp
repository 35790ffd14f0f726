// Linked into a test program, this stands in for the system's name lookup: for names under
// "blocked.test" it never answers, as with a name server that is gone; those under "loopback.test"
// are this machine, and "twice.loopback.test" is 127.0.0.2 first. Every other name goes to the
// system.

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
    if (numericOnly || !name.ends_with("loopback.test"))
        return system(node, service, hints, result);
    if (name != "twice.loopback.test") return system("127.0.0.1", service, hints, result);
    addrinfo* second = nullptr;
    if (const int failure = system("127.0.0.1", service, hints, &second)) return failure;
    const int failure = system("127.0.0.2", service, hints, result);
    if (failure) return ::freeaddrinfo(second), failure;
    addrinfo* last = *result;
    while (last->ai_next) last = last->ai_next;
    last->ai_next = second;  // each is freed by itself
    return 0;
}
