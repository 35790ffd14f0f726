// Versions of TLS before 1.2 are refused by the library itself: here the system's own policy lets
// them pass.
#include <gtest/gtest.h>
#include <openssl/bio.h>
#include <openssl/ssl.h>

#include <cstdio>
#include <cstdlib>
#include <string>

#include "VexIMLib/SocketIOClient.h"
#include "platform/SessionProbe.h"
#include "socketio/Peers.h"
#include "socketio/Recorder.h"
#include "support/Certificates.h"

namespace vexim::testing {
namespace {

/// The version that a client without limits negotiates, such as "TLSv1.1"; "nothing" if there is no
/// connection.
std::string versionAgreedWith(const ScriptedServer& server) {
    SSL_CTX* const context = SSL_CTX_new(TLS_client_method());
    BIO* const connection = BIO_new_ssl_connect(context);
    // not const: OpenSSL's macro would cast that away
    std::string address = "127.0.0.1:" + std::to_string(server.port());
    BIO_set_conn_hostname(connection, address.data());
    SSL* session = nullptr;
    BIO_get_ssl(connection, &session);
    const std::string version =
        BIO_do_connect(connection) == 1 ? SSL_get_version(session) : "nothing";
    BIO_free_all(connection);
    SSL_CTX_free(context);
    return version;
}

std::string liveOutcome(const ScriptedServer& server, const std::string& authority,
                        const char* transport) {
    const auto client = makeClient(server.url(), {{transport, true}, {"caPEM", authority}});
    Recorder heard(*client);
    client->connect();
    return eventually([&] { return !heard.lines().empty(); })
               ? heard.lines()[0].substr(0, heard.lines()[0].find(' '))
               : "nothing";
}

/// A line for a server that speaks TLS 1.1 only, and one for a server of today.
std::string outcomes() {
    const CertificateAuthority authority;
    const auto& pem = authority.certificatePEM();
    const auto probe = SessionProbe::trusting(pem);
    std::string all;
    for (const bool isOld : {true, false}) {
        auto identity = authority.issue();
        identity.isOld = isOld;
        const ScriptedServer files(ScriptedServer::answering([](const WireRequest&) {
                                       return ScriptedServer::text(200, "{}");
                                   }),
                                   identity);
        const ScriptedServer live(serveEitherTransport(), identity);
        all += versionAgreedWith(files) + ": REST " +
               std::to_string(probe->load(files.url()).code()) + ", WebSocket " +
               liveOutcome(live, pem, "forceWebsockets") + ", polling " +
               liveOutcome(live, pem, "forcePolling") + "; ";
    }
    return all;
}

// In a process of its own, which reads the system's policy anew.
TEST(OldTLSDeathTest, IsRefusedThoughTheSystemWouldAllowIt) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    ::setenv("OPENSSL_CONF", VEXIM_OLD_TLS_CONFIGURATION, 1);
    EXPECT_EXIT(
        {
            std::fputs(outcomes().c_str(), stderr);
            std::_Exit(0);
        },
        ::testing::ExitedWithCode(0),
        "TLSv1.1: REST -1200, WebSocket error, polling error; TLSv1.3: REST 0, WebSocket connect, polling connect; ");
    ::unsetenv("OPENSSL_CONF");
}

}  // namespace
}  // namespace vexim::testing
