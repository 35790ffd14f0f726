// The session, and operations without a network.

#include <cstdio>
#include <string>

#include "VexIMLib/C/internal/Configuration.h"
#include "VexIMLib/C/internal/Handlers.h"
#include "VexIMLib/Foundation/Log.h"
#include "VexIMLib/VXIMClientConfiguration.h"
#include "VexIMLib/VXIMConstants.h"
#include "VexIMLib/VXIMSettings.h"

namespace vexim::c::handlers {

namespace {

/// If "appId" or "clientKey" is missing, C++ raises an exception about a dictionary. Here the
/// caller gets the name of the field.
void requireConfigured(Request& request) {
    const auto config = request.client().config();
    const char* missing = !config->appId()                           ? "appId"
                          : config->clientKey().value_or("").empty() ? "clientKey"
                                                                     : nullptr;
    if (missing)
        throw Refusal({InterfaceError::MissingArgument,
                       std::string("The configuration has no \"") + missing + "\"."});
}

}  // namespace

void loginWithUserId(Request& request) {
    requireConfigured(request);
    if (!request.client().config()->installationId()) {
        throw Refusal({InterfaceError::MissingArgument,
                       "The configuration has no \"installationId\", which this login needs."});
    }
    request.client().loginWithUserId(request.text("userId"), request.done());
}
void loginWithUsername(Request& request) {
    requireConfigured(request);
    request.client().loginWithUsername(request.text("username"), request.text("password"),
                                       request.done());
}
void loginWithPhoneNumber(Request& request) {
    requireConfigured(request);
    request.client().loginWithPhoneNumber(request.text("phoneNumber"), request.text("smsCode"),
                                          request.done());
}
void loginWithThirdPartyOAuth(Request& request) {
    requireConfigured(request);
    request.client().loginWithThirdPartyOAuth(request.dictionary("oauth"), request.done());
}
void loginWithAuthData(Request& request) {
    request.client().loginWithAuthData(request.dictionary("authData"), request.done());
}
void logout(Request& request) { request.client().logoutWithCompletion(request.done()); }
void deleteCurrentInstallId(Request& request) {
    request.client().deleteCurrentInstallIdCompletion(request.done());
}

void pause(Request& request) {
    request.client().pause();
    request.succeed("true");
}
void resume(Request& request) {
    request.client().resume();
    request.succeed("true");
}
void resetFlags(Request& request) {
    request.client().resetFlags();
    request.succeed("true");
}
void currentUser(Request& request) {
    std::string result;
    write(result, request.client().currentUser());
    request.succeed(result);
}

void cancel(Request& request) {
    std::string extra;
    write(extra, request.value("extra"));
    const auto error =
        Error::withDescription(kURLErrorDomain, URLErrorCancelled, "The request was cancelled.");
    std::size_t count = 0;
    const auto transfers = request.mailbox().cancel(extra, request.id(), errorBody(*error), count);
    for (const auto& transfer : transfers) transfer->cancel();
    request.succeed(std::to_string(count));
}

std::optional<Problem> descriptor(const Asker& asker, const Dictionary&, std::string& result) {
    const auto descriptor = asker.mailbox->descriptor();
    if (!descriptor)
        return Problem{InterfaceError::Nothing,
                       "The process has no descriptors left, or the client was freed."};
    ObjectWriter(result).add("descriptor", Value(*descriptor));
    return std::nullopt;
}

std::optional<Problem> status(const Asker& asker, const Dictionary&, std::string& result) {
    write(result, Value(static_cast<std::int32_t>(asker.client->status())));
    return std::nullopt;
}

std::optional<Problem> offlineTemporally(const Asker& asker, const Dictionary&,
                                         std::string& result) {
    write(result, Value(asker.client->offlineTemporally()));
    return std::nullopt;
}

std::optional<Problem> tryLogout(const Asker& asker, const Dictionary&, std::string& result) {
    write(result, Value(asker.client->tryLogout()));
    return std::nullopt;
}

std::optional<Problem> config(const Asker& asker, const Dictionary&, std::string& result) {
    const auto config = asker.client->config();
    ObjectWriter object(result);
    object.add("appId", Value(config->appId()))
        .add("installationId", Value(config->installationId()));
    if (const auto& url = config->socketURL())
        object.add("socketURL", Value(url->absoluteString()));
    object.add("nsp", Value(config->nsp()));
    return std::nullopt;
}

std::optional<Problem> diagnose(const Asker& asker, const Dictionary&, std::string& result) {
    write(result, asker.client->diagnose().value());
    return std::nullopt;
}

std::optional<Problem> metrics(const Asker&, const Dictionary&, std::string& result) {
    const auto& metrics = metricsOfProcess();
    const std::string text = metrics->prometheusText();
    ObjectWriter(result).add("text", std::string_view(text)).add("values", metrics->value());
    return std::nullopt;
}

std::optional<Problem> version(const Asker&, const Dictionary&, std::string& result) {
    std::string text = reinterpret_cast<const char*>(VexIMLibVersionString);
    while (text.ends_with('\n')) text.pop_back();
    ObjectWriter object(result);
    object.add("version", std::string_view(VEXIM_VERSION))
        .add("number", Value(VexIMLibVersionNumber));
    object.add("text", std::string_view(text));
    return std::nullopt;
}

std::optional<Problem> setApplicationInfo(const Asker&, const Dictionary& arguments,
                                          std::string& result) {
    vexim::setApplicationInfo({arguments.get("bundleIdentifier").asString(),
                               arguments.get("bundleVersion").asString(),
                               arguments.get("systemVersion").asString()});
    result = "true";
    return std::nullopt;
}

std::optional<Problem> setKeepsFinishedDelegates(const Asker&, const Dictionary& arguments,
                                                 std::string& result) {
    vexim::setKeepsFinishedDelegates(arguments.get("keeps").boolValue());
    result = "true";
    return std::nullopt;
}

std::optional<Problem> setLog(const Asker&, const Dictionary& arguments, std::string& result) {
    result = "true";
    const auto name = arguments.get("level").asStringView();
    if (!name) {
        vexim::setLogSink({});
        return std::nullopt;
    }
    static constexpr std::pair<std::string_view, LogLevel> kLevels[] = {
        {"debug", LogLevel::Debug},
        {"info", LogLevel::Info},
        {"warning", LogLevel::Warning},
        {"error", LogLevel::Error}};
    for (const auto& [known, level] : kLevels) {
        if (known != *name) continue;
        setLogSink(level, [](LogLevel, std::string_view line) {
            std::fprintf(stderr, "vexim: %.*s\n", static_cast<int>(line.size()), line.data());
        });
        return std::nullopt;
    }
    return Problem{InterfaceError::WrongArgument,
                   R"("level" must be "debug", "info", "warning" or "error".)"};
}

}  // namespace vexim::c::handlers
