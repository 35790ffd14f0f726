// HTTP/2, with a server that we did not write.

#include <gtest/gtest.h>

#include "VexIMLib/Foundation/JSON.h"
#include "platform/SessionProbe.h"
#include "support/Certificates.h"
#include "support/ChildProcess.h"

namespace vexim::testing {
namespace {

constexpr const char* kServer = R"(
const http2 = require('http2');
const identity = JSON.parse(process.argv[1]);
const server = http2.createSecureServer({ cert: identity.cert, key: identity.key, allowHTTP1: true }, (request, response) => {
  if (request.url === '/refuse') { response.writeHead(413); return response.end(request.httpVersion); }
  let size = 0;
  request.on('data', chunk => { size += chunk.length; });
  request.on('end', () => response.end(request.httpVersion + ' ' + size));
});
server.listen(0, '127.0.0.1', () => console.log(server.address().port));
)";

TEST(HTTP2, IsSpokenButForLongUploads) {
    const CertificateAuthority authority;
    const TLSIdentity identity = authority.issue();
    ChildProcess server(
        {"node", "-e", kServer,
         writeJSON(Dictionary{{"cert", identity.certificatePEM}, {"key", identity.privateKeyPEM}})
             .text});
    const auto port = server.readLine();
    ASSERT_TRUE(port);
    const auto url = [&](const std::string& path) { return "https://127.0.0.1:" + *port + path; };
    const auto probe = SessionProbe::trusting(authority.certificatePEM());
    EXPECT_EQ(probe->load(url("/")).body, "2.0 0");

    auto request = SessionProbe::request(url("/"));
    request.method = "POST";
    request.body = Data(std::string(20'000, 'x'));
    EXPECT_EQ(probe->load(request).body, "2.0 20000");
    // These must not use the idle HTTP/2 connection.
    request.body = Data(std::string(2'000'000, 'x'));
    EXPECT_EQ(probe->load(request).body, "1.1 2000000");
    request.url = URL::parse(url("/refuse"));
    const auto refused = probe->load(request);
    EXPECT_EQ(refused.status, 413) << refused.detail();

    std::vector<std::shared_ptr<URLSessionTask>> tasks;
    for (int i = 0; i < 50; ++i) tasks.push_back(probe->task(url("/" + std::to_string(i))));
    for (const auto& task : tasks) task->resume();
    for (const auto& task : tasks) EXPECT_EQ(probe->waitForEnd(task).body, "2.0 0");
}

}  // namespace
}  // namespace vexim::testing
