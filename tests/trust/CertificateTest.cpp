// One table of certificates, each tried against every kind of traffic: the answer and its words
// must be the same for all.
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <set>
#include <string>
#include <vector>

#include "VexIMLib/Foundation/Array.h"
#include "VexIMLib/Foundation/Error.h"
#include "trust/TrustFixture.h"

namespace vexim::testing {
namespace {

using namespace std::chrono_literals;
using Options = CertificateAuthority::Options;

// What the error's text must contain.
constexpr const char* kAccepted = "accepted";
constexpr const char* kUnknown = "was not issued by a trusted authority";
constexpr const char* kExpired = "has expired";
constexpr const char* kEarly = "is not valid yet";
constexpr const char* kName = "is not for \"";
constexpr const char* kPin = "is not one of the pinned keys";
constexpr const char* kSelfSigned = "is self-signed";

struct Row {
    const char* why;
    TLSIdentity identity;
    std::string host = "127.0.0.1";
    const char* words = kAccepted;
    Dictionary options{};  // empty: trusts the table's authority
};

/// The codes that URL loading publishes for these words.
std::int64_t codeFor(const std::string& words) {
    if (words == kAccepted) return 0;
    if (words == kUnknown || words == kSelfSigned) return URLErrorServerCertificateHasUnknownRoot;
    if (words == kExpired) return URLErrorServerCertificateHasBadDate;
    return words == kEarly ? URLErrorServerCertificateNotYetValid
                           : URLErrorServerCertificateUntrusted;
}

TLSIdentity with(TLSIdentity leaf, std::initializer_list<const CertificateAuthority*> chain) {
    for (const auto* authority : chain) leaf.certificatePEM += authority->certificatePEM();
    return leaf;
}

class CertificateTest : public TrustTest {
protected:
    const CertificateAuthority root;
    const CertificateAuthority stranger{"Stranger"};
    const CertificateAuthority intermediate{"Intermediate", root};
    const Dictionary trusting{{"caPEM", root.certificatePEM()}};

    Dictionary alsoWith(const char* key, const Value& value) const {
        Dictionary options = trusting;
        options.set(key, value);
        return options;
    }
    TLSIdentity named(const std::string& names) const { return root.issue({.names = names}); }
    TLSIdentity extended(const char* kind, const std::string& value) const {
        return root.issue({.extensions = {{kind, value}}});
    }
    /// A leaf under an intermediate with these extensions; the server sends both.
    TLSIdentity under(std::vector<std::pair<std::string, std::string>> extensions,
                      const std::string& names = "IP:127.0.0.1") const {
        const CertificateAuthority flawed("Flawed", &root, {.extensions = std::move(extensions)});
        return with(flawed.issue({.names = names}), {&flawed});
    }
    TLSIdentity underOne(const Options& options) const {
        const CertificateAuthority flawed("Flawed", &root, options);
        return with(flawed.issue(), {&flawed});
    }

    void check(const std::vector<Row>& rows) {
        std::set<std::string> reasons;
        for (const auto& row : rows) {
            SCOPED_TRACE(row.why);
            EXPECT_TRUE(reasons.insert(row.why).second);
            const int before = asked();
            const ScriptedServer server(script(), row.identity);
            const auto said = outcome("https://" + row.host + ":" + std::to_string(server.port()),
                                      row.options.empty() ? trusting : row.options);
            EXPECT_TRUE(said.find(row.words) != said.npos && !said.starts_with("differs")) << said;
            EXPECT_EQ(lastCode(), codeFor(row.words));
            EXPECT_EQ(asked() > before, row.words == std::string(kAccepted))
                << "what is signed must not reach the wrong server";
        }
    }
};

TEST_F(CertificateTest, OfEveryKindOfChainAreJudgedAlikeByAllTraffic) {
    const CertificateAuthority impostor("Test authority");  // the root's name over another key
    const CertificateAuthority second("Second", intermediate);
    const CertificateAuthority third("Third", second);
    const CertificateAuthority shortRoot(
        "Short", nullptr,
        {.extensions = {{"basicConstraints", "critical,CA:TRUE,pathlen:0"},
                        {"keyUsage", "keyCertSign"}}});
    const CertificateAuthority belowShort("Below", shortRoot);
    const CertificateAuthority expiredRoot("Old root", nullptr, {.startsIn = -48h, .endsIn = -1h});
    const CertificateAuthority rsaRoot("RSA root", nullptr, {.key = "RSA2048"});
    const CertificateAuthority sha1Root("SHA-1 root", nullptr, {.digest = "SHA1"});
    const std::string isAuthority = "critical,CA:TRUE";
    const std::string loopback = "DNS:loopback.test";
    check({
        {"a good one", root.issue()},
        {"by an unknown authority", stranger.issue(), "127.0.0.1", kUnknown},
        {"the system knows none of ours",
         root.issue(),
         "127.0.0.1",
         kUnknown,
         {{"selfSigned", false}}},
        {"an unknown authority that takes the root's name", impostor.issue(), "127.0.0.1",
         "signature failure"},
        {"intermediate missing", intermediate.issue(), "127.0.0.1", kUnknown},
        {"intermediate sent along", with(intermediate.issue(), {&intermediate})},
        {"intermediate between ones that do not belong there",
         with(intermediate.issue(), {&stranger, &intermediate, &second})},
        {"three intermediates", with(third.issue(), {&third, &second, &intermediate})},
        {"three intermediates in the wrong order",
         with(third.issue(), {&intermediate, &third, &second})},
        {"three intermediates, the middle one missing",
         with(third.issue(), {&third, &intermediate}), "127.0.0.1", kUnknown},
        {"the root sent along", with(intermediate.issue(), {&intermediate, &root})},
        {"an unknown root sent along", with(stranger.issue(), {&stranger}), "127.0.0.1", kUnknown},
        {"an intermediate that may not issue", under({{"basicConstraints", "critical,CA:FALSE"}}),
         "127.0.0.1", "CA certificate"},
        {"an intermediate that does not say that it may", under({{"keyUsage", "digitalSignature"}}),
         "127.0.0.1", "CA certificate"},
        {"an intermediate whose key is not for signing certificates",
         under({{"basicConstraints", isAuthority}, {"keyUsage", "critical,cRLSign"}}), "127.0.0.1",
         "CA certificate"},
        {"a path that is too long",
         with(belowShort.issue(), {&belowShort}),
         "127.0.0.1",
         "path length",
         {{"caPEM", shortRoot.certificatePEM()}}},
        {"a path as long as it may be",
         shortRoot.issue(),
         "127.0.0.1",
         kAccepted,
         {{"caPEM", shortRoot.certificatePEM()}}},
        {"a name within the constraints",
         under({{"basicConstraints", isAuthority},
                {"nameConstraints", "critical,permitted;" + loopback}},
               "DNS:chat.loopback.test"),
         "chat.loopback.test"},
        {"a name outside the constraints",
         under({{"basicConstraints", isAuthority},
                {"nameConstraints", "critical,permitted;DNS:other.test"}},
               "DNS:chat.loopback.test"),
         "chat.loopback.test", "permitted subtree violation"},
        {"a name that is excluded",
         under({{"basicConstraints", isAuthority},
                {"nameConstraints", "critical,excluded;" + loopback}},
               "DNS:chat.loopback.test"),
         "chat.loopback.test", "excluded subtree violation"},
        {"an address outside the constraints",
         under({{"basicConstraints", isAuthority},
                {"nameConstraints", "critical,permitted;IP:10.0.0.0/255.0.0.0"}}),
         "127.0.0.1", "permitted subtree violation"},
        {"an expired intermediate", underOne({.startsIn = -48h, .endsIn = -1h}), "127.0.0.1",
         kExpired},
        {"an intermediate from tomorrow on", underOne({.startsIn = 20h, .endsIn = 48h}),
         "127.0.0.1", kEarly},
        {"an expired root",
         expiredRoot.issue(),
         "127.0.0.1",
         kExpired,
         {{"caPEM", expiredRoot.certificatePEM()}}},
        {"a critical extension that nobody knows",
         extended("1.2.3.4.5", "critical,ASN1:UTF8String:x"), "127.0.0.1", "critical extension"},
        {"an extension that nobody knows", extended("1.2.3.4.5", "ASN1:UTF8String:x")},

        {"for servers", extended("extendedKeyUsage", "serverAuth")},
        {"for servers and clients", extended("extendedKeyUsage", "clientAuth,serverAuth")},
        {"for clients only", extended("extendedKeyUsage", "clientAuth"), "127.0.0.1", "purpose"},
        {"for signing code only", extended("extendedKeyUsage", "codeSigning"), "127.0.0.1",
         "purpose"},
        {"an intermediate for clients only",
         under({{"basicConstraints", isAuthority}, {"extendedKeyUsage", "clientAuth"}}),
         "127.0.0.1", "purpose"},
        {"a key that is only for revocation lists", extended("keyUsage", "critical,cRLSign"),
         "127.0.0.1", "purpose"},
        {"a server that is an authority itself", extended("basicConstraints", isAuthority)},

        {"expired", root.issue({.startsIn = -48h, .endsIn = -1h}), "127.0.0.1", kExpired},
        {"not yet valid", root.issue({.startsIn = 1h, .endsIn = 48h}), "127.0.0.1", kEarly},
        {"dates that only the longer form can say", root.issue({.endsIn = 24h * 365 * 60})},

        {"RSA of 2048 bits", root.issue({.key = "RSA2048"})},
        {"P-384", root.issue({.key = "P-384"})},
        {"Ed25519", root.issue({.key = "ED25519"})},
        {"RSA of 1024 bits", root.issue({.key = "RSA1024"}), "127.0.0.1", "too weak"},
        {"an intermediate of 1024 bits", underOne({.key = "RSA1024"}), "127.0.0.1", "too weak"},
        {"signed over SHA-1", root.issue({.digest = "SHA1"}), "127.0.0.1", "too weak"},
        {"signed over MD5",
         rsaRoot.issue({.digest = "MD5"}),
         "127.0.0.1",
         "too weak",
         {{"caPEM", rsaRoot.certificatePEM()}}},
        {"an intermediate signed over SHA-1", underOne({.digest = "SHA1"}), "127.0.0.1",
         "too weak"},
        {"a root signed over SHA-1, which vouches for itself anyway",
         sha1Root.issue(),
         "127.0.0.1",
         kAccepted,
         {{"caPEM", sha1Root.certificatePEM()}}},
    });
}

TEST_F(CertificateTest, OfEveryKindOfNameAreJudgedAlikeByAllTraffic) {
    const std::string chat = "chat.loopback.test";
    const std::string bucher = "xn--bcher-kva.loopback.test";
    using namespace std::string_literals;
    check({
        {"the name", named("DNS:chat.loopback.test"), chat},
        {"the name in capitals", named("DNS:CHAT.Loopback.Test"), chat},
        {"another name", named("DNS:other.loopback.test"), chat, kName},
        {"a name that the host only begins with", named("DNS:chat.loopback"), chat, kName},
        {"a name that the host only ends with", named("DNS:loopback.test"), chat, kName},
        {"one of several", named("DNS:other.test,DNS:chat.loopback.test,IP:10.0.0.1"), chat},
        {"a dot behind the URL's host", named("DNS:chat.loopback.test"), chat + "."},
        {"a dot behind the certificate's name", named("DNS:chat.loopback.test."), chat, kName},
        {"a dot before the certificate's name", named("DNS:.loopback.test"), chat, kName},
        {"a wildcard", named("DNS:*.loopback.test"), chat},
        {"a wildcard in capitals", named("DNS:*.LOOPBACK.TEST"), chat},
        {"a wildcard for two labels", named("DNS:*.loopback.test"), "a.chat.loopback.test", kName},
        {"a wildcard for no label", named("DNS:*.loopback.test"), "loopback.test", kName},
        {"a wildcard in the middle", named("DNS:chat.*.test"), chat, kName},
        {"a wildcard at the end", named("DNS:chat.loopback.*"), chat, kName},
        {"a wildcard after the beginning of a label", named("DNS:ch*.loopback.test"), chat, kName},
        {"a wildcard before the end of a label", named("DNS:*at.loopback.test"), chat, kName},
        {"two wildcards", named("DNS:*.*.test"), chat, kName},
        {"two wildcards in a label", named("DNS:**.loopback.test"), chat, kName},
        {"a wildcard for everything", named("DNS:*"), chat, kName},
        {"a wildcard for a whole top level", named("DNS:*.test"), "loopback.test", kName},
        {"an underscore under a wildcard", named("DNS:*.loopback.test"), "my_chat.loopback.test",
         kName},
        {"an underscore spelled out", named("DNS:my_chat.loopback.test"), "my_chat.loopback.test"},
        {"a name in the subject only", root.issue({.host = chat, .isOldForm = true}), chat, kName},
        {"an address in the subject only", root.issue({.isOldForm = true}), "127.0.0.1", kName},
        {"the name in the subject, another one in its place",
         root.issue({.host = chat, .names = "DNS:other.test"}), chat, kName},
        {"the name in the subject, and alternatives of other kinds",
         root.issue(
             {.host = chat, .names = "email:me@loopback.test,URI:https://chat.loopback.test"}),
         chat, kName},
        {"a NUL behind the name", root.issue({.exactName = "chat.loopback.test\0.stranger.test"s}),
         chat, kName},
        {"a NUL at the name's end", root.issue({.exactName = "chat.loopback.test\0"s}), chat,
         kName},
        {"a blank behind the name", root.issue({.exactName = "chat.loopback.test "}), chat, kName},
        {"an international name", named("DNS:xn--bcher-kva.loopback.test"), bucher},
        {"an international name under a wildcard", named("DNS:*.loopback.test"), bucher},
        {"an international name as UTF-8", root.issue({.exactName = "b\u00fccher.loopback.test"}),
         bucher, kName},

        {"a host that is all names below it", named("DNS:*.loopback.test"), ".loopback.test",
         "No certificate can match"},
        {"another address", named("IP:127.0.0.2"), "127.0.0.1", kName},
        {"one of several addresses", named("IP:10.0.0.1,IP:127.0.0.1,DNS:chat.test")},
        {"the address as a name", named("DNS:127.0.0.1"), "127.0.0.1", kName},
        {"an address under a wildcard", named("DNS:*.0.0.1"), "127.0.0.1", kName},
        {"the address of a server that is asked by name", named("IP:127.0.0.1"), chat, kName},
        {"the address in IPv6's form", named("IP:0:0:0:0:0:ffff:7f00:1"), "127.0.0.1", kName},
    });
}

TEST_F(CertificateTest, UnderEveryOptionAreJudgedAlikeByAllTraffic) {
    const auto good = root.issue();
    const auto other = root.issue();
    const auto selfSigned = CertificateAuthority::selfSigned();
    const auto expired = root.issue({.startsIn = -48h, .endsIn = -1h});
    const Dictionary lax{{"selfSigned", true}};
    const auto pinned = [&](const TLSIdentity& identity) {
        return alsoWith("pinnedKeys", Array{pinOf(identity.certificatePEM)});
    };
    const auto laxAndPinned = [&](const TLSIdentity& identity) {
        return Dictionary{{"selfSigned", true},
                          {"pinnedKeys", Array{pinOf(identity.certificatePEM)}}};
    };
    const auto only = [](const std::string& pem) { return Dictionary{{"caPEM", pem}}; };
    check({
        {"self-signed", selfSigned, "127.0.0.1", kSelfSigned},
        {"self-signed and allowed", selfSigned, "127.0.0.1", kAccepted, lax},
        {"self-signed and allowed, for another host",
         CertificateAuthority::selfSigned({.host = "127.0.0.2"}), "127.0.0.1", kName, lax},
        {"self-signed and allowed, but expired",
         CertificateAuthority::selfSigned({.startsIn = -48h, .endsIn = -1h}), "127.0.0.1", kExpired,
         lax},
        {"self-signed and allowed, but of 1024 bits",
         CertificateAuthority::selfSigned({.key = "RSA1024"}), "127.0.0.1", "too weak", lax},
        {"self-signed and allowed, but signed by another key",
         CertificateAuthority::forgedSelfSigned(), "127.0.0.1", "signature failure", lax},
        {"an unknown authority is not a self-signed one", stranger.issue(), "127.0.0.1", kUnknown,
         lax},
        {"an unknown authority that is sent along is none either",
         with(stranger.issue(), {&stranger}), "127.0.0.1", kUnknown, lax},
        {"good, where self-signed ones are allowed", good, "127.0.0.1", kAccepted,
         alsoWith("selfSigned", true)},
        {"a self-signed one that is the authority", selfSigned, "127.0.0.1", kAccepted,
         only(selfSigned.certificatePEM)},
        {"only a boolean allows self-signed ones",
         selfSigned,
         "127.0.0.1",
         kSelfSigned,
         {{"selfSigned", "yes"}}},

        {"pinned", good, "127.0.0.1", kAccepted, pinned(good)},
        {"another key pinned", good, "127.0.0.1", kPin, pinned(other)},
        {"one of several pins", good, "127.0.0.1", kAccepted,
         alsoWith("pinnedKeys", Array{pinOf(other.certificatePEM), pinOf(good.certificatePEM)})},
        {"the authority's key pinned, which is not the server's", good, "127.0.0.1", kPin,
         alsoWith("pinnedKeys", Array{pinOf(root.certificatePEM())})},
        {"pinned, but by an unknown authority",
         good,
         "127.0.0.1",
         kUnknown,
         {{"pinnedKeys", Array{pinOf(good.certificatePEM)}}}},
        {"pinned, but expired", expired, "127.0.0.1", kExpired, pinned(expired)},
        {"pinned, but asked by another name", good, "chat.loopback.test", kName, pinned(good)},
        {"self-signed, allowed and pinned", selfSigned, "127.0.0.1", kAccepted,
         laxAndPinned(selfSigned)},
        {"self-signed and allowed, another key pinned", selfSigned, "127.0.0.1", kPin,
         laxAndPinned(other)},
        {"self-signed and pinned, but not allowed",
         selfSigned,
         "127.0.0.1",
         kSelfSigned,
         {{"pinnedKeys", Array{pinOf(selfSigned.certificatePEM)}}}},

        {"an intermediate as the only authority", intermediate.issue(), "127.0.0.1", kAccepted,
         only(intermediate.certificatePEM())},
        {"the same, sent along", with(intermediate.issue(), {&intermediate}), "127.0.0.1",
         kAccepted, only(intermediate.certificatePEM())},
        {"an intermediate does not vouch for its root's others", good, "127.0.0.1", kUnknown,
         only(intermediate.certificatePEM())},
        {"the server's own certificate as authority", good, "127.0.0.1", kAccepted,
         only(good.certificatePEM)},
        {"the same for another name", good, "chat.loopback.test", kName, only(good.certificatePEM)},
        {"the same, expired", expired, "127.0.0.1", kExpired, only(expired.certificatePEM)},
        {"a server's certificate vouches for itself only", other, "127.0.0.1", kUnknown,
         only(good.certificatePEM)},
        {"several authorities, with remarks between them", good, "127.0.0.1", kAccepted,
         only("# ours\n" + stranger.certificatePEM() + "\r\n\tand: the one that counts\n" +
              root.certificatePEM() + "\n")},
    });
}

}  // namespace
}  // namespace vexim::testing
