#pragma once

// What a server may answer to the opening handshake of a WebSocket (RFC 6455, section 4.1). It uses
// only Beast's HTTP, so that Beast's stream is compiled once.
#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

#include <boost/beast/http/dynamic_body.hpp>
#include <boost/beast/http/message.hpp>
#include <boost/beast/http/parser.hpp>
#include <boost/beast/http/string_body.hpp>

#include "VexIMLib/internal/SocketIO/Protocol/HeaderList.h"

namespace vexim {

using HandshakeResponse = boost::beast::http::response<boost::beast::http::string_body>;

/// Names something that an accepting answer agrees to although we did not ask for it; nullptr if
/// there is nothing. RFC 6455, section 4.1, says to refuse such an answer.
const char* faultOfAgreement(const HandshakeResponse& response, const HeaderList& asked,
                             bool offeredDeflate);

/// Reads an answer other than 101. Beast would read the whole answer. We stop at a limit and report
/// what came before it.
class RefusalReader {
public:
    RefusalReader();
    /// Removes what it can parse from `pending`, at whose end are `added` new bytes. True when it
    /// needs no more.
    bool read(std::string& pending, std::size_t added);
    /// The connection has ended. This also ends an answer without a length.
    void endOfInput();
    /// Whether the status and the header fields are complete.
    bool hasHead() const { return parser_.is_header_done(); }
    const HandshakeResponse::header_type& head() const { return parser_.get().base(); }
    std::string body() const;

private:
    // A string would reserve the announced length at once.
    boost::beast::http::response_parser<boost::beast::http::dynamic_body> parser_;
    std::size_t bytes_ = 0;
};

}  // namespace vexim
