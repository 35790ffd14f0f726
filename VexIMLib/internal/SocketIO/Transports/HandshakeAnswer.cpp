#include "VexIMLib/internal/SocketIO/Transports/HandshakeAnswer.h"

#include <algorithm>

#include <boost/asio/buffer.hpp>
#include <boost/beast/core/buffers_to_string.hpp>
#include <boost/beast/http/rfc7230.hpp>

namespace vexim {
namespace {

namespace beast = boost::beast;
namespace http = beast::http;
using boost::system::error_code;

// The limit for the body of a refusal; the reason of a Socket.IO server has less than a hundred
// bytes.
constexpr std::size_t kMaxRefusalBytes = 64 * 1024;

}  // namespace

const char* faultOfAgreement(const HandshakeResponse& response, const HeaderList& asked,
                             bool offeredDeflate) {
    int protocols = 0;
    for (auto range = response.equal_range(http::field::sec_websocket_protocol);
         range.first != range.second; ++range.first) {
        const auto chosen = range.first->value();
        const auto wasAsked = [&](const auto& header) {
            if (!beast::iequals(header.first, "Sec-WebSocket-Protocol")) return false;
            http::token_list tokens(header.second);
            return std::any_of(tokens.begin(), tokens.end(),
                               [&](const auto& token) { return token == chosen; });
        };
        if (++protocols > 1 || std::ranges::none_of(asked, wasAsked))
            return "a subprotocol that we did not ask for";
    }
    int extensions = 0;
    for (auto range = response.equal_range(http::field::sec_websocket_extensions);
         range.first != range.second; ++range.first) {
        for (const auto& extension : http::ext_list(range.first->value())) {
            const bool isDeflate = beast::iequals(extension.first, "permessage-deflate");
            if (++extensions > 1 || !isDeflate || !offeredDeflate)
                return "an extension that we did not ask for";
        }
    }
    return nullptr;
}

RefusalReader::RefusalReader() {
    parser_.body_limit(boost::none);  // our own limit also counts the framing
}

bool RefusalReader::read(std::string& pending, std::size_t added) {
    bytes_ += added;
    error_code error;
    std::size_t consumed = 0;
    while (!error && !parser_.is_done() && consumed < pending.size()) {
        consumed += parser_.put(
            boost::asio::buffer(pending.data() + consumed, pending.size() - consumed), error);
    }
    pending.erase(0, consumed);
    const bool needsMore = !parser_.is_done() && (!error || error == http::error::need_more);
    return !needsMore || bytes_ > kMaxRefusalBytes;
}

void RefusalReader::endOfInput() {
    error_code ignored;
    parser_.put_eof(ignored);
}

std::string RefusalReader::body() const {
    return beast::buffers_to_string(parser_.get().body().data());
}

}  // namespace vexim
