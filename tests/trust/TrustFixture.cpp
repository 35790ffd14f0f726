#include "trust/TrustFixture.h"

#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/sha.h>
#include <openssl/x509.h>

#include <algorithm>
#include <array>
#include <fstream>
#include <memory>

#include "VexIMLib/Foundation/Data.h"
#include "VexIMLib/Foundation/Error.h"
#include "VexIMLib/Foundation/URL.h"
#include "VexIMLib/SocketIOClient.h"
#include "VexIMLib/VXIMClientConfiguration.h"
#include "VexIMLib/internal/Networking/VXIMRequest.h"
#include "VexIMLib/internal/Platform/Files/InputStream.h"
#include "socketio/Peers.h"
#include "support/Completions.h"
#include "support/Eventually.h"

namespace vexim::testing {
namespace {

constexpr const char* kAccepted = "accepted";

std::shared_ptr<VXIMRequest> requestOf(const char* method) {
    auto request = VXIMRequest::request();
    request->setMethod(method);
    request->setPath("/anything");
    return request;
}

}  // namespace

std::string pinOf(const std::string& certificatePEM) {
    BIO* const bio =
        BIO_new_mem_buf(certificatePEM.data(), static_cast<int>(certificatePEM.size()));
    X509* const certificate = PEM_read_bio_X509(bio, nullptr, nullptr, nullptr);
    BIO_free(bio);
    unsigned char* der = nullptr;
    const int length = i2d_PUBKEY(X509_get0_pubkey(certificate), &der);
    std::array<unsigned char, SHA256_DIGEST_LENGTH> digest{};
    SHA256(der, static_cast<std::size_t>(length), digest.data());
    OPENSSL_free(der);
    X509_free(certificate);
    std::array<unsigned char, 45> text{};
    EVP_EncodeBlock(text.data(), digest.data(), SHA256_DIGEST_LENGTH);
    return reinterpret_cast<const char*>(text.data());
}

TrustTest::TrustTest() {
    vxim_configuration = VXIMClientConfiguration::defaultConfiguration();
    vxim_configuration->setAppId("app-1");
    vxim_configuration->setClientKey("key");
}

TrustTest::~TrustTest() { vxim_configuration = nullptr; }

ScriptedServer::Script TrustTest::script() {
    return serveEitherTransport([this](const WireRequest& request) {
        ++asked_;
        return request.target.starts_with("/socket.io/") ? std::string()
                                                         : ScriptedServer::text(200, "{}");
    });
}

VXIMResultCompletion TrustTest::keep(std::string& outcome) {
    return once([this, &outcome](const Value&, const ErrorPtr& error) {
        outcome = error ? error->localizedDescription() : kAccepted;
        const ErrorPtr cause = error ? error->underlyingError() : nullptr;
        lastCode_ = cause ? cause->code() : error ? error->code() : 0;
    });
}

std::vector<std::pair<std::string, std::string>> TrustTest::outcomes(const std::string& origin,
                                                                     const Dictionary& options) {
    std::vector<std::pair<std::string, std::string>> all{
        {"REST", ""}, {"upload", ""}, {"download", ""}, {"WebSocket", ""}, {"polling", ""}};
    vxim_configuration->setSocketURL(URL::parse(origin));
    vxim_configuration->setDictionary(options);
    requests_ = {requestOf("GET"), requestOf("POST"), requestOf("GET")};
    requests_[0]->sendWithCompletion(keep(all[0].second));
    requests_[1]->uploadWithNewBodyStreamBlock([] { return InputStream::withData(Data("abc")); },
                                               nullptr, keep(all[1].second));
    requests_[2]->downloadToPath((folder / "file").string(), nullptr, keep(all[2].second));
    std::vector<std::shared_ptr<SocketIOClient>> clients;
    for (const auto& [transport, outcome] : {std::pair{"forceWebsockets", &all[3].second},
                                             std::pair{"forcePolling", &all[4].second}}) {
        Dictionary live = options;
        live.set(transport, true);
        live.set("reconnects", false);
        const auto& client = clients.emplace_back(SocketIOClient::create(URL::parse(origin), live));
        client->joinNamespace("/chat");
        client->on("connect", [outcome](const Array&, const AckEmitter&) { *outcome = kAccepted; });
        client->on("error", [outcome](const Array& arguments, const AckEmitter&) {
            *outcome = arguments.get(0).description();
        });
        client->connect();
    }
    EXPECT_TRUE(eventually([&] {
        return std::ranges::none_of(all, [](const auto& each) { return each.second.empty(); });
    }));
    for (const auto& client : clients) client->removeAllHandlers();
    return all;
}

std::string TrustTest::outcome(const std::string& origin, const Dictionary& options) {
    const auto all = outcomes(origin, options);
    for (std::size_t i = 0; i < requests_.size(); ++i) {
        EXPECT_TRUE(all[i].second == kAccepted || requests_[i]->retryCount() == 0)
            << all[i].first << " tells at once";
    }
    if (std::ranges::all_of(all, [&](const auto& each) { return each.second == all[0].second; }))
        return all[0].second;
    std::string text = "differs";
    for (const auto& [kind, outcome] : all) text += "; " + kind + ": " + outcome;
    return text;
}

}  // namespace vexim::testing
