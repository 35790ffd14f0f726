#include "VexIMLib/internal/Platform/Threads/HostResolver.h"

#include <arpa/inet.h>
#include <netdb.h>
#include <sys/socket.h>

#include <algorithm>
#include <utility>

#include "VexIMLib/internal/Platform/Facts/URLErrors.h"
#include "VexIMLib/internal/Platform/Threads/LibraryThreads.h"
#include "VexIMLib/internal/Platform/Threads/NetworkThread.h"

namespace vexim {
namespace {

struct Answer {
    std::vector<std::string> addresses;
    ErrorPtr error;
};

Answer lookUp(const std::string& host, int flags) {
    addrinfo hints{};
    hints.ai_socktype = SOCK_STREAM;
    hints.ai_flags = flags;
    addrinfo* found = nullptr;
    Answer answer;
    const int failure = ::getaddrinfo(host.c_str(), nullptr, &hints, &found);
    for (const addrinfo* entry = failure ? nullptr : found; entry; entry = entry->ai_next) {
        char text[NI_MAXHOST];
        if (::getnameinfo(entry->ai_addr, entry->ai_addrlen, text, sizeof text, nullptr, 0,
                          NI_NUMERICHOST) != 0)
            continue;
        if (std::find(answer.addresses.begin(), answer.addresses.end(), text) ==
            answer.addresses.end()) {
            answer.addresses.emplace_back(text);
        }
    }
    if (!failure) ::freeaddrinfo(found);
    if (answer.addresses.empty()) {
        answer.error = makeURLError(URLErrorCannotFindHost, std::nullopt,
                                    failure ? ::gai_strerror(failure) : "");
    }
    return answer;
}

/// Only its owner holds it. The lookup thread has a weak reference, so the completion is never
/// destroyed on that thread.
struct PendingLookup {
    HostResolver::Completion completion;
};

class SystemLookup final : public HostResolver::Lookup {
public:
    explicit SystemLookup(std::shared_ptr<PendingLookup> pending) : pending_(std::move(pending)) {}

private:
    const std::shared_ptr<PendingLookup> pending_;
};

void deliver(std::weak_ptr<PendingLookup> weak, Answer answer) {
    NetworkThread::shared().post([weak = std::move(weak), answer = std::move(answer)]() mutable {
        const auto pending = weak.lock();
        if (!pending) return;
        if (const auto completion = std::exchange(pending->completion, nullptr)) {
            completion(std::move(answer.addresses), std::move(answer.error));
        }
    });
}

/// Whether `host` is an address in its usual form.
bool needsNoLookup(const std::string& host) {
    in6_addr address;
    return ::inet_pton(AF_INET, host.c_str(), &address) == 1 ||
           ::inet_pton(AF_INET6, host.c_str(), &address) == 1;
}

class SystemResolver final : public HostResolver {
public:
    std::unique_ptr<Lookup> resolve(std::string host, Completion completion) override {
        auto pending = std::make_shared<PendingLookup>(std::move(completion));
        const std::weak_ptr<PendingLookup> weak = pending;
        if (needsNoLookup(host)) {
            deliver(weak, {{std::move(host)}, nullptr});
        } else if (Answer numeric = lookUp(host, AI_NUMERICHOST); !numeric.error) {
            deliver(weak, std::move(numeric));
        } else if (!LibraryThreads::startUninterruptible(
                       "vexim-resolver", [host, weak] { deliver(weak, lookUp(host, 0)); })) {
            deliver(weak, {{}, makeURLError(URLErrorCannotFindHost)});
        }
        return std::make_unique<SystemLookup>(std::move(pending));
    }
};

}  // namespace

bool isThisMachine(std::string_view host) noexcept {
    // "127.a.example" may belong to anybody
    const bool isAddress = host.find_first_not_of("0123456789.") == std::string_view::npos;
    return host == "localhost" || (isAddress && host.starts_with("127.")) || host == "::1" ||
           host.ends_with(".localhost");
}

HostResolver& HostResolver::system() {
    static auto* const resolver = new SystemResolver;
    return *resolver;
}

}  // namespace vexim
