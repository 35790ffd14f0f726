#include "Explain.h"

#include "VexIMLib/VXIMErrors.h"
#include "chat/Text.h"

namespace {

constexpr const char* kCheckAddress = " Are the address and the port right?";

// A server that expects TLS closes the connection when it gets a plain request.
constexpr const char* kCheckScheme = " Are the address and the port right? Or is it https://?";

/// For a connection that could not be opened.
const char* hintForConnection(std::int64_t kind) {
    switch (kind) {
        case VXIMConnectionErrorOther:
        case VXIMConnectionErrorBadAddress:
        case VXIMConnectionErrorHostNotFound:
        case VXIMConnectionErrorUnreachable:
        case VXIMConnectionErrorNotSocketIO: return kCheckAddress;
        case VXIMConnectionErrorLost: return kCheckScheme;
        default: return "";
    }
}

const char* hintForLoading(std::int64_t code) {
    switch (code) {
        case vexim::URLErrorBadURL:
        case vexim::URLErrorUnsupportedURL:
        case vexim::URLErrorCannotFindHost:
        case vexim::URLErrorCannotConnectToHost:
        case vexim::URLErrorBadServerResponse: return kCheckAddress;
        case vexim::URLErrorNetworkConnectionLost: return kCheckScheme;
        default: return "";
    }
}

/// For a request that the service refused, by the service's code.
const char* hintForRefusal(std::int64_t code) {
    switch (code) {
        case 1102:
        case 1104: return " Check --app and --key.";
        case 1105: return " Check the user name and the password.";
        default: return "";
    }
}

/// What the user can do about it; empty if we have no good guess.
std::string hintFor(const vexim::Error& error, const std::string& words) {
    // OpenSSL says this if the server answers without TLS.
    if (words.find("wrong version number") != std::string::npos)
        return " The server does not speak TLS there: is it http://?";
    if (words.starts_with("TLS failed")) return kCheckAddress;
    if (error.domain() == VXIMConnectionErrorDomain) return hintForConnection(error.code());
    if (error.is(VXErrorDomain, VXErrorNoUsableAnswer)) {
        const auto cause = error.underlyingError();
        return cause && cause->domain() == vexim::kURLErrorDomain ? hintForLoading(cause->code())
                                                                  : "";
    }
    return error.domain() == VXIMErrorDomain || error.domain() == VXErrorDomain
               ? hintForRefusal(error.code())
               : "";
}

}  // namespace

std::string explain(const vexim::ErrorPtr& error) {
    if (!error) return "no reason given";
    const std::string words = error->localizedDescription();
    return chat::harmless(words + hintFor(*error, words) + " (" + error->domain() + " " +
                          std::to_string(error->code()) + ")");
}
