// Whom the client trusts: the same judgement on both transports.
#include <gtest/gtest.h>
#include <openssl/pem.h>
#include <openssl/sha.h>
#include <openssl/x509.h>

#include <atomic>
#include <chrono>
#include <string>

#include "VexIMLib/internal/SocketIO/Base64.h"
#include "VexIMLib/internal/SocketIO/SocketIOClient.h"
#include "socketio/Peers.h"
#include "socketio/Recorder.h"

namespace vexim::testing {
namespace {

using namespace std::chrono_literals;

std::string pinOf(const std::string& certificatePEM) {
    BIO* bio = BIO_new_mem_buf(certificatePEM.data(), static_cast<int>(certificatePEM.size()));
    X509* certificate = PEM_read_bio_X509(bio, nullptr, nullptr, nullptr);
    BIO_free(bio);
    unsigned char* der = nullptr;
    const int length = i2d_PUBKEY(X509_get0_pubkey(certificate), &der);
    std::array<unsigned char, SHA256_DIGEST_LENGTH> digest{};
    SHA256(der, static_cast<std::size_t>(length), digest.data());
    OPENSSL_free(der);
    X509_free(certificate);
    return encodeBase64({reinterpret_cast<const char*>(digest.data()), digest.size()});
}

TEST(Certificates, AreJudgedAlikeOnBothTransports) {
    const CertificateAuthority authority;
    const CertificateAuthority stranger("Stranger");
    const CertificateAuthority intermediate("Intermediate", authority);
    const auto good = authority.issue();
    const auto underIntermediate = intermediate.issue();
    const auto selfSigned = CertificateAuthority::selfSigned();
    TLSIdentity withIntermediate = underIntermediate;
    withIntermediate.certificatePEM += intermediate.certificatePEM();

    const Dictionary trusting{{"caPEM", authority.certificatePEM()}};
    const auto with = [&](const char* key, const Value& value) {
        Dictionary options = trusting;
        options.set(key, value);
        return options;
    };
    struct Row {
        const char* why;
        TLSIdentity identity;
        Dictionary options;
        bool accepted;
    };
    const Row rows[] = {
        {"a good one", good, trusting, true},
        {"by an unknown authority", stranger.issue(), trusting, false},
        {"by one that the system does not know", good, {}, false},
        {"expired", authority.issue({.host = "127.0.0.1", .startsIn = -48h, .endsIn = -1h}), trusting, false},
        {"not yet valid", authority.issue({.host = "127.0.0.1", .startsIn = 1h, .endsIn = 48h}), trusting, false},
        {"for another host", authority.issue({.host = "elsewhere.example", .startsIn = -24h, .endsIn = 24h}), trusting, false},
        {"for another address", authority.issue({.host = "127.0.0.2", .startsIn = -24h, .endsIn = 24h}), trusting, false},
        {"intermediate missing", underIntermediate, trusting, false},
        {"intermediate sent along", withIntermediate, trusting, true},
        {"pinned", good, with("pinnedKeys", Array{pinOf(authority.issue().certificatePEM), pinOf(good.certificatePEM)}), true},
        {"another key pinned", good, with("pinnedKeys", Array{pinOf(authority.issue().certificatePEM)}), false},
        {"self-signed", selfSigned, trusting, false},
        {"self-signed and allowed", selfSigned, with("selfSigned", true), true},
        {"self-signed for another host", CertificateAuthority::selfSigned({.host = "127.0.0.2", .startsIn = -24h, .endsIn = 24h}),
         with("selfSigned", true), false},
        {"self-signed and expired", CertificateAuthority::selfSigned({.host = "127.0.0.1", .startsIn = -24h, .endsIn = -1h}),
         with("selfSigned", true), false},
        {"an unknown authority is no self-signed one", stranger.issue(), with("selfSigned", true), false},
        {"authorities that are none", good, {{"caPEM", "no certificate"}}, false},
        {"a file that is not there", good, {{"caFile", "/nonexistent/ca.pem"}}, false},
    };
    for (const auto& row : rows) {
        for (const char* transport : {"forceWebsockets", "forcePolling"}) {
            SCOPED_TRACE(std::string(row.why) + ", " + transport);
            std::atomic<bool> wasAsked{false};
            const ScriptedServer::Script notAsked = [&](ScriptedServer::Connection& c) { wasAsked = c.readHead().has_value(); };
            ScriptedServer server(row.accepted ? serveEitherTransport() : notAsked, row.identity);
            Dictionary options = row.options;
            options.set(transport, true);
            const auto client = SocketIOClient::create(URL::parse(server.url()), options);
            client->joinNamespace("/chat");
            Recorder heard;
            heard.listen(*client);
            client->connect();
            ASSERT_TRUE(eventually([&] { return !heard.lines().empty(); }));
            EXPECT_EQ(heard.lines()[0].substr(0, heard.lines()[0].find(' ')), row.accepted ? "connect" : "error") << heard.last();
            EXPECT_FALSE(wasAsked) << "credentials must not reach the wrong server";
        }
    }
}

TEST(Certificates, MakeAPlainUrlSecureWhenAsked) {
    const CertificateAuthority authority;
    ScriptedServer server(serveEitherTransport(), authority.issue());
    const std::string plain = "http://127.0.0.1:" + std::to_string(server.port());
    const auto client = SocketIOClient::create(
        URL::parse(plain), {{"secure", true}, {"forceWebsockets", true}, {"caPEM", authority.certificatePEM()}});
    client->joinNamespace("/chat");
    Recorder heard;
    heard.listen(*client);
    client->connect();
    EXPECT_TRUE(heard.waitFor("connect"));
}

}  // namespace
}  // namespace vexim::testing
