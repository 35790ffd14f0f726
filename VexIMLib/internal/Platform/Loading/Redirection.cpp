#include "VexIMLib/internal/Platform/Loading/Redirection.h"

#include <utility>

#include "VexIMLib/internal/Foundation/Text/Origin.h"

namespace vexim {

std::optional<URLRequest> redirectedRequest(const URLRequest& request,
                                            const HTTPURLResponse& response) {
    const int status = response.statusCode;
    const bool redirects =
        status == 301 || status == 302 || status == 303 || status == 307 || status == 308;
    const std::string* const location = redirects ? response.headers.find("Location") : nullptr;
    auto target = location ? request.url->resolve(*location) : std::nullopt;
    if (!target) return std::nullopt;

    URLRequest next = request;
    const bool becomesGet =
        status == 303 ? request.method != "HEAD" : (status <= 302 && request.method == "POST");
    if (becomesGet) {
        next.method = "GET";
        next.body = {};
        next.bodyStream = nullptr;
        for (const char* field :
             {"Content-Type", "Content-Length", "Content-Encoding", "Transfer-Encoding"})
            next.headers.remove(field);
    }
    if (!detail::haveSameOrigin(*request.url, *target)) {
        for (const char* field : {"Authorization", "Cookie", "Proxy-Authorization"})
            next.headers.remove(field);
    }
    next.url = std::move(target);
    return next;
}

}  // namespace vexim
