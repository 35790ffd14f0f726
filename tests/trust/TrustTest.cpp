// Where trust comes from, and that two trusts never share connections.
#include <gtest/gtest.h>
#include <openssl/err.h>
#include <openssl/pem.h>
#include <openssl/ssl.h>
#include <openssl/x509.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

#include "VexIMLib/Foundation/Array.h"
#include "VexIMLib/Foundation/Error.h"
#include "VexIMLib/internal/Platform/Trust/TlsSession.h"
#include "VexIMLib/internal/Platform/Trust/Trust.h"
#include "trust/TrustFixture.h"

namespace vexim::testing {
namespace {

void write(const std::filesystem::path& path, const std::string& text) {
    std::ofstream(path, std::ios::binary) << text;
}

TEST_F(TrustTest, WhatIsMalformedIsRefusedAsAWholeAndSaysSo) {
    const CertificateAuthority authority;
    const CertificateAuthority stranger("Stranger");
    const std::string good = authority.certificatePEM();
    const std::string pin = pinOf(good);
    const std::string second = stranger.certificatePEM();
    write(folder / "key.pem", good + authority.issue().privateKeyPEM);
    const auto pins = [&](const Value& value) {
        return Dictionary{{"caPEM", good}, {"pinnedKeys", value}};
    };
    const auto pem = [](const std::string& text) { return Dictionary{{"caPEM", text}}; };
    const auto file = [](const std::string& path) { return Dictionary{{"caFile", path}}; };
    const struct {
        const char* why;
        Dictionary options;
        const char* words;
    } rows[] = {
        {"a pin that is too short", pins(Array{pin, "AAAA"}), "Entry 2 of option \"pinnedKeys\""},
        {"a pin with another program's prefix", pins(Array{"sha256//" + pin}),
         "Entry 1 of option \"pinnedKeys\""},
        {"a pin with a blank at its end", pins(Array{pin.substr(0, 43) + " "}),
         "Entry 1 of option \"pinnedKeys\""},
        {"a pin whose last bits belong to no byte", pins(Array{std::string(42, 'A') + "B="}),
         "Entry 1 of option \"pinnedKeys\""},
        {"a pin in the alphabet of URLs", pins(Array{"_" + std::string(42, 'A') + "="}),
         "Entry 1 of option \"pinnedKeys\""},
        {"a digest in hexadecimal", pins(Array{std::string(64, 'a')}),
         "Entry 1 of option \"pinnedKeys\""},
        {"a pin that is a number", pins(Array{pin, 5}), "Entry 2 of option \"pinnedKeys\""},
        {"one pin outside a list", pins(pin), "Option \"pinnedKeys\" must be a list"},
        {"no pin at all", pins(Array{}), "Option \"pinnedKeys\" must be a list"},
        {"no text", pem(""), "Option \"caPEM\" must be a nonempty string"},
        {"no path", file(""), "Option \"caFile\" must be a nonempty string"},
        {"no certificate", pem("no certificate"),
         "option \"caPEM\" cannot be used: it must contain complete certificates"},
        {"a second certificate that is cut off", pem(good + second.substr(0, second.size() - 40)),
         "complete certificates"},
        {"a second certificate whose first line is damaged", pem(good + second.substr(1)),
         "complete certificates"},
        {"a second certificate whose bytes are damaged",
         pem(good + std::string(second).replace(100, 4, "####")), "complete certificates"},
        {"a second certificate without its first line", pem(good + second.substr(28)),
         "complete certificates"},
        {"more than anybody has", pem(std::string((16 << 20) + 1, '\n') + good),
         "it is longer than 16 MiB"},
        {"two that are malformed",
         {{"caPEM", ""}, {"pinnedKeys", Array{}}},
         "Option \"caPEM\" must be a nonempty string"},
        {"a private key among them", file((folder / "key.pem").string()),
         "option \"caFile\" cannot be used: it must contain complete"},
        {"a file that is not there", file((folder / "none.pem").string()),
         "option \"caFile\" cannot be used: No such file"},
        {"a folder", file(folder.path().string()),
         "option \"caFile\" cannot be used: it is not a file"},
    };
    const ScriptedServer server(script(), authority.issue());
    const ScriptedServer plain(script());
    for (const auto& row : rows) {
        SCOPED_TRACE(row.why);
        for (const auto* each : {&server, &plain}) {
            const auto said = outcome(each->url(""), row.options);
            EXPECT_TRUE(said.find(row.words) != said.npos && !said.starts_with("differs")) << said;
            EXPECT_EQ(lastCode(), URLErrorSecureConnectionFailed);
        }
    }
    EXPECT_EQ(server.connectionCount() + plain.connectionCount(), 0) << "nobody is even asked";
}

TEST_F(TrustTest, ConnectionsAreNeverSharedAcrossTrusts) {
    const CertificateAuthority authority;
    const auto identity = CertificateAuthority::selfSigned();
    const ScriptedServer server(script(), identity);
    const Dictionary lax{{"selfSigned", true}};
    const auto origin = server.url("");
    const Dictionary strict[] = {
        {},
        {{"caPEM", authority.certificatePEM()}},
        {{"selfSigned", true}, {"pinnedKeys", Array{pinOf(authority.certificatePEM())}}},
    };
    // After these, connections of the lax one are idle, and a TLS session could be resumed.
    EXPECT_EQ(outcome(origin, lax), "accepted");
    const int opened = server.connectionCount();
    for (const auto& options : strict) {
        const auto all = outcomes(origin, options);
        for (const auto& [kind, said] : all) EXPECT_NE(said, "accepted") << kind;
        EXPECT_EQ(outcome(origin, lax), "accepted");
    }
    EXPECT_GT(server.connectionCount(), opened);
    // On the other hand, an equal trust reuses a connection: a GET needs no new one.
    Dictionary again{{"selfSigned", true}};
    const auto same = TrustChoice::of(lax).trust;
    EXPECT_EQ(TrustChoice::of(again).trust, same);
    again.set("caPEM", authority.certificatePEM());
    EXPECT_NE(TrustChoice::of(again).trust->identity(), same->identity());
}

TEST_F(TrustTest, FollowsRedirectsToOtherServers) {
    const CertificateAuthority authority;
    const CertificateAuthority stranger("Stranger");
    const ScriptedServer elsewhere(script(), stranger.issue());
    const ScriptedServer first(ScriptedServer::answering([&](const WireRequest&) {
                                   return ScriptedServer::text(
                                       307, "", "Location: " + elsewhere.url("/x") + "\r\n");
                               }),
                               authority.issue());
    const auto both = authority.certificatePEM() + stranger.certificatePEM();
    EXPECT_EQ(outcomes(first.url(""), {{"caPEM", both}})[0].second, "accepted");
    EXPECT_EQ(outcomes(first.url(""), {{"caPEM", authority.certificatePEM()}})[0].second,
              "The server's certificate was not issued by a trusted authority.");
}

/// OpenSSL's own server at the other end of a session, in memory.
class MemoryServer {
public:
    explicit MemoryServer(const TLSIdentity& identity)
        : context_(SSL_CTX_new(TLS_server_method())) {
        BIO* pem = BIO_new_mem_buf(identity.certificatePEM.data(), -1);
        X509* const certificate = PEM_read_bio_X509(pem, nullptr, nullptr, nullptr);
        BIO_free(pem);
        pem = BIO_new_mem_buf(identity.privateKeyPEM.data(), -1);
        EVP_PKEY* const key = PEM_read_bio_PrivateKey(pem, nullptr, nullptr, nullptr);
        BIO_free(pem);
        SSL_CTX_use_certificate(context_, certificate);
        SSL_CTX_use_PrivateKey(context_, key);
        X509_free(certificate);
        EVP_PKEY_free(key);
        ssl = SSL_new(context_);
        SSL_set_bio(ssl, BIO_new(BIO_s_mem()), BIO_new(BIO_s_mem()));
        SSL_set_accept_state(ssl);
    }
    ~MemoryServer() {
        SSL_free(ssl);
        SSL_CTX_free(context_);
    }

    /// Carries bytes between the two until neither has any. Returns the state of the session.
    TlsSession::Status talkTo(TlsSession& session) {
        auto status = TlsSession::Status::Open;
        for (bool isMoving = true; isMoving;) {
            const std::string sent = std::exchange(session.output(), {});
            BIO_write(SSL_get_rbio(ssl), sent.data(), static_cast<int>(sent.size()));
            char byte = 0;
            SSL_read(ssl, &byte, 1);  // also does the handshake
            char bytes[65536];
            const int count = BIO_read(SSL_get_wbio(ssl), bytes, sizeof bytes);
            std::string plain;
            if (count > 0)
                status = session.receive({bytes, static_cast<std::size_t>(count)}, plain);
            isMoving = count > 0 || !session.output().empty();
        }
        return status;
    }

    SSL* ssl = nullptr;

private:
    SSL_CTX* const context_;
};

TEST(TlsSession, TellsThePeerWhomItWantsWhatIsWrongAndWhenItGoes) {
    const CertificateAuthority authority;
    const auto trust = TrustChoice::of(Dictionary{{"caPEM", authority.certificatePEM()}}).trust;
    using Status = TlsSession::Status;
    const std::string host = "chat.loopback.test";
    for (const bool isPeerFirst : {false, true}) {
        MemoryServer server(authority.issue({.host = host, .names = "DNS:" + host}));
        const auto session = TlsSession::create(trust, host + ".");
        session->start();
        EXPECT_EQ(server.talkTo(*session), Status::Open);
        EXPECT_TRUE(session->isEstablished());
        EXPECT_STREQ(SSL_get_servername(server.ssl, TLSEXT_NAMETYPE_host_name), host.c_str());
        isPeerFirst ? void(SSL_shutdown(server.ssl)) : session->close();
        EXPECT_EQ(server.talkTo(*session), isPeerFirst ? Status::Closed : Status::Open);
        EXPECT_EQ(SSL_get_shutdown(server.ssl) & SSL_RECEIVED_SHUTDOWN,
                  isPeerFirst ? 0 : SSL_RECEIVED_SHUTDOWN)
            << "a goodbye";
    }
    MemoryServer stranger(CertificateAuthority("Stranger").issue());
    const auto session = TlsSession::create(trust, "127.0.0.1");
    session->start();
    ERR_clear_error();
    EXPECT_EQ(stranger.talkTo(*session), Status::Failed);
    EXPECT_EQ(ERR_GET_REASON(ERR_peek_last_error()), SSL_R_TLSV1_ALERT_UNKNOWN_CA);
    ERR_clear_error();
    EXPECT_EQ(SSL_get_servername(stranger.ssl, TLSEXT_NAMETYPE_host_name), nullptr)
        << "an address is no name";
    EXPECT_EQ(TlsSession::create(trust, ".loopback.test"), nullptr) << "for every name below it";
    EXPECT_EQ(TlsSession::create(trust, ""), nullptr);
}

TEST_F(TrustTest, TakesUpAnAuthorityFileThatWasReplaced) {
    const CertificateAuthority authority;
    const CertificateAuthority stranger("Stranger");
    const ScriptedServer server(script(), authority.issue());
    const auto path = folder / "ca.pem";
    const Dictionary options{{"caFile", path.string()}};
    write(path, stranger.certificatePEM());
    EXPECT_EQ(outcome(server.url(""), options),
              "The server's certificate was not issued by a trusted authority.");
    write(folder / "new.pem", stranger.certificatePEM() + authority.certificatePEM());
    std::filesystem::rename(folder / "new.pem", path);
    EXPECT_EQ(outcome(server.url(""), options), "accepted");
}

TEST_F(TrustTest, TheEnvironmentNamesTheSystemsAuthoritiesForAllTraffic) {
    const CertificateAuthority authority;
    const ScriptedServer server(script(), authority.issue());
    const ScriptedServer plain(script());
    const auto file = folder / "ca.pem";
    write(file, authority.certificatePEM());
    // OpenSSL finds a certificate in a folder by the hash of its subject.
    std::FILE* const stream = std::fopen(file.c_str(), "r");
    X509* const certificate = PEM_read_X509(stream, nullptr, nullptr, nullptr);
    std::fclose(stream);
    char name[16];
    std::snprintf(name, sizeof name, "%08lx.0", X509_subject_name_hash(certificate));
    X509_free(certificate);
    std::filesystem::create_directory(folder / "certs");
    write(folder / "certs" / name, authority.certificatePEM());

    ::unsetenv("SSL_CERT_DIR");
    ::setenv("SSL_CERT_FILE", file.c_str(), 1);
    EXPECT_EQ(outcome(server.url(""), {}), "accepted");
    EXPECT_NE(outcome(server.url(""), {{"caPEM", CertificateAuthority("Other").certificatePEM()}}),
              "accepted")
        << "an option takes its place";
    ::setenv("SSL_CERT_FILE", (folder / "none.pem").c_str(), 1);
    EXPECT_EQ(
        outcome(server.url(""), {}),
        "The certificate authorities of the variable SSL_CERT_FILE cannot be used: No such file or directory.");
    EXPECT_EQ(lastCode(), URLErrorSecureConnectionFailed);
    EXPECT_EQ(outcome(plain.url(""), {}), "accepted") << "who speaks no TLS needs no authorities";
    ::unsetenv("SSL_CERT_FILE");
    ::setenv("SSL_CERT_DIR", (folder / "certs").c_str(), 1);
    EXPECT_EQ(outcome(server.url(""), {}), "accepted");
    ::unsetenv("SSL_CERT_DIR");
    EXPECT_NE(outcome(server.url(""), {}), "accepted");
}

TEST_F(TrustTest, APlainUrlIsMadeSecureForTheLiveConnectionWhenAsked) {
    const CertificateAuthority authority;
    const ScriptedServer server(script(), authority.issue());
    const auto all = outcomes("http://127.0.0.1:" + std::to_string(server.port()),
                              {{"secure", true}, {"caPEM", authority.certificatePEM()}});
    EXPECT_EQ(all[3].second, "accepted");
    EXPECT_EQ(all[4].second, "accepted");
}

TEST_F(TrustTest, WhatIsTooOldOrTooWeakIsRefusedWhateverTheSystemAllows) {
    const CertificateAuthority authority;
    const Dictionary options{{"caPEM", authority.certificatePEM()}};
    const struct {
        const char* system;
        int version, level;
        int leastVersion, leastLevel;
    } rows[] = {
        {"allows everything", TLS1_VERSION, 0, TLS1_2_VERSION, 2},
        {"asks for more", TLS1_3_VERSION, 3, TLS1_3_VERSION, 3},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.system);
        SSL_CTX* const context = SSL_CTX_new(TLS_client_method());
        SSL_CTX_set_min_proto_version(context, row.version);
        SSL_CTX_set_security_level(context, row.level);
        EXPECT_TRUE(TrustChoice::of(options).trust->configure(context, "127.0.0.1"));
        EXPECT_EQ(SSL_CTX_get_min_proto_version(context), row.leastVersion);
        EXPECT_EQ(SSL_CTX_get_security_level(context), row.leastLevel);
        SSL_CTX_free(context);
    }
    auto identity = authority.issue();
    identity.isOld = true;
    const ScriptedServer old(script(), identity);
    EXPECT_EQ(outcome(old.url(""), options), "TLS failed: tlsv1 alert protocol version.");
}

TEST_F(TrustTest, ABrokenHandshakeIsTheSameToAllTraffic) {
    const ScriptedServer plain(ScriptedServer::Script([](ScriptedServer::Connection& connection) {
        connection.readSome();
        connection.write("HTTP/1.1 400 Bad Request\r\nContent-Length: 0\r\n\r\n");
    }));
    EXPECT_EQ(outcome("https://127.0.0.1:" + std::to_string(plain.port()), {}),
              "TLS failed: wrong version number.");
    EXPECT_EQ(lastCode(), URLErrorSecureConnectionFailed);
}

}  // namespace
}  // namespace vexim::testing
