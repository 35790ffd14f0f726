#include "VexIMLib/internal/SocketIO/Protocol/ConnectionError.h"

#include <curl/curl.h>

#include "VexIMLib/Foundation/Dictionary.h"

namespace vexim {
namespace {

constexpr const char* kDetailKey = "detail";

/// The text for each kind. It is a complete sentence, or begins one that goes on with the reason.
const char* beginningFor(VXIMConnectionErrorKind kind) {
    switch (kind) {
        case VXIMConnectionErrorOther: return "The connection failed";
        case VXIMConnectionErrorBadAddress: return "The address cannot be used";
        case VXIMConnectionErrorHostNotFound: return "The host could not be found";
        case VXIMConnectionErrorUnreachable: return "The server cannot be reached";
        case VXIMConnectionErrorTimedOut: return "The server did not answer in time";
        case VXIMConnectionErrorNotSecure: return "The connection is not secure";
        case VXIMConnectionErrorProxy: return "The proxy did not let the connection through";
        case VXIMConnectionErrorNotSocketIO:
            return "The address does not belong to a Socket.IO server";
        case VXIMConnectionErrorRefused: return "The server refused the connection";
        case VXIMConnectionErrorProtocolFault: return "The server violated the protocol";
        case VXIMConnectionErrorLimitPassed: return "A limit was exceeded";
        case VXIMConnectionErrorLost: return "The connection was lost";
        case VXIMConnectionErrorServerReported: return "The server reports an error";
    }
    return "The connection failed";
}

bool isSentence(std::string_view text) {
    return text.size() > 1 && text.front() >= 'A' && text.front() <= 'Z' && text.ends_with('.');
}

}  // namespace

VXIMConnectionErrorKind kindOf(EndCause cause) noexcept {
    switch (cause) {
        case EndCause::Refused: return VXIMConnectionErrorRefused;
        case EndCause::ConnectFailed: return VXIMConnectionErrorUnreachable;
        case EndCause::HeartbeatMissed: return VXIMConnectionErrorTimedOut;
        case EndCause::ProtocolFault: return VXIMConnectionErrorProtocolFault;
        case EndCause::LimitPassed: return VXIMConnectionErrorLimitPassed;
        case EndCause::Asked:
        case EndCause::ServerDisconnect:
        case EndCause::LinkLost: return VXIMConnectionErrorLost;
    }
    return VXIMConnectionErrorOther;
}

VXIMConnectionErrorKind kindOf(event::WebSocketFailed::Stage stage, int httpStatus,
                               std::optional<EngineError> code) noexcept {
    using Stage = event::WebSocketFailed::Stage;
    switch (stage) {
        case Stage::Resolve: return VXIMConnectionErrorHostNotFound;
        case Stage::Connect: return VXIMConnectionErrorUnreachable;
        case Stage::Tls: return VXIMConnectionErrorNotSecure;
        case Stage::Proxy: return VXIMConnectionErrorProxy;
        case Stage::Cut: return VXIMConnectionErrorLost;
        case Stage::Handshake: break;
    }
    const bool isClosed = httpStatus == 401 || httpStatus == 403;
    if (code || isClosed) return VXIMConnectionErrorRefused;
    const bool isOverloaded = httpStatus >= 500 || httpStatus == 429;
    return isOverloaded ? VXIMConnectionErrorUnreachable : VXIMConnectionErrorNotSocketIO;
}

TransferFault faultOfTransfer(int result, std::string_view text) noexcept {
    switch (result) {
        case CURLE_COULDNT_RESOLVE_HOST:
            return {VXIMConnectionErrorHostNotFound, "The host could not be found."};
        case CURLE_COULDNT_CONNECT: return {VXIMConnectionErrorUnreachable, text};
        case CURLE_OPERATION_TIMEDOUT:
            return {VXIMConnectionErrorTimedOut, "The server did not answer in time."};
        case CURLE_COULDNT_RESOLVE_PROXY:
        case CURLE_PROXY: return {VXIMConnectionErrorProxy, text};
        case CURLE_PEER_FAILED_VERIFICATION:
        case CURLE_SSL_CONNECT_ERROR:
        case CURLE_SSL_CIPHER:
        case CURLE_SSL_CERTPROBLEM:
        case CURLE_SSL_CACERT_BADFILE:
        case CURLE_SSL_ENGINE_INITFAILED:
        case CURLE_SSL_INVALIDCERTSTATUS: return {VXIMConnectionErrorNotSecure, text};
        case CURLE_UNSUPPORTED_PROTOCOL:
        case CURLE_WEIRD_SERVER_REPLY:
            return {VXIMConnectionErrorNotSocketIO, "The server's answer is not HTTP."};
        case CURLE_BAD_CONTENT_ENCODING:
            return {VXIMConnectionErrorProtocolFault,
                    "The server's answer cannot be decompressed."};
        case CURLE_GOT_NOTHING: return {VXIMConnectionErrorLost, kCutOff};
        case CURLE_PARTIAL_FILE:
            return {VXIMConnectionErrorLost,
                    "The server closed the connection in the middle of an answer."};
        default: break;
    }
    // libcurl has one code for everything that goes wrong while it reads, even for trailers that
    // are too long.
    if (text.find("chunked") != text.npos)
        return {VXIMConnectionErrorProtocolFault, "The server's answer is not valid HTTP."};
    return {VXIMConnectionErrorLost, text};
}

ErrorPtr makeConnectionError(VXIMConnectionErrorKind kind, std::string_view reason,
                             const Value& detail) {
    std::string sentence(reason);
    if (!isSentence(reason)) {
        sentence = beginningFor(kind);
        if (!reason.empty()) (sentence += ": ") += reason;
        if (!sentence.ends_with('.')) sentence += '.';
    }
    Dictionary userInfo{{kLocalizedDescriptionKey, std::move(sentence)}};
    const bool saysNothing =
        detail.isNilOrNull() || (detail.isDictionary() && detail.asDictionary()->empty());
    if (!saysNothing) userInfo.set(kDetailKey, detail);
    return Error::make(VXIMConnectionErrorDomain, kind, std::move(userInfo));
}

Array errorArguments(const ErrorPtr& error) {
    Array arguments{error->localizedDescription()};
    if (const Value detail = error->info(kDetailKey); !detail.isNil()) arguments.append(detail);
    arguments.append(error);
    return arguments;
}

}  // namespace vexim
