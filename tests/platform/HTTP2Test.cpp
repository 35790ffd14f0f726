// HTTP/2, where a server that nobody here wrote offers it.

#include <gtest/gtest.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>

#include "platform/SessionProbe.h"
#include "support/Certificates.h"

extern char** environ;

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

std::string quoted(const std::string& text) {
    std::string json = "\"";
    for (const char c : text) c == '\n' ? json.append("\\n") : json.append(1, c);
    return json + "\"";
}

/// Node's own HTTP/2 server in a process of its own.
class NodeServer {
public:
    explicit NodeServer(const TLSIdentity& identity) {
        int ends[2];
        if (::pipe(ends) != 0) return;
        posix_spawn_file_actions_t actions;
        ::posix_spawn_file_actions_init(&actions);
        ::posix_spawn_file_actions_adddup2(&actions, ends[1], STDOUT_FILENO);
        ::posix_spawn_file_actions_addclose(&actions, ends[0]);
        std::string argument =
            R"({"cert":)" + quoted(identity.certificatePEM) + R"(,"key":)" + quoted(identity.privateKeyPEM) + "}";
        std::string script = kServer;
        char* arguments[] = {const_cast<char*>("node"), const_cast<char*>("-e"), script.data(), argument.data(), nullptr};
        if (::posix_spawnp(&process_, "node", &actions, nullptr, arguments, environ) != 0) process_ = 0;
        ::posix_spawn_file_actions_destroy(&actions);
        ::close(ends[1]);
        std::FILE* const output = ::fdopen(ends[0], "r");
        if (process_ && std::fscanf(output, "%d", &port_) != 1) port_ = 0;
        std::fclose(output);
    }
    ~NodeServer() {
        if (!process_) return;
        ::kill(process_, SIGKILL);
        ::waitpid(process_, nullptr, 0);
    }
    int port() const { return port_; }
    std::string url(const std::string& path) const { return "https://127.0.0.1:" + std::to_string(port_) + path; }

private:
    pid_t process_ = 0;
    int port_ = 0;
};

TEST(HTTP2, IsSpokenButForLongUploads) {
    const CertificateAuthority authority;
    const NodeServer server(authority.issue());
    if (server.port() == 0) GTEST_SKIP() << "no node on this machine";
    URLSessionConfiguration configuration;
    configuration.certificateAuthorityPEM = authority.certificatePEM();
    const auto probe = SessionProbe::make(configuration);
    EXPECT_EQ(probe->load(server.url("/")).body, "2.0 0");

    auto request = SessionProbe::request(server.url("/"));
    request.method = "POST";
    request.body = Data(std::string(20'000, 'x'));
    EXPECT_EQ(probe->load(request).body, "2.0 20000");
    // The idle HTTP/2 connection must not be taken for these.
    request.body = Data(std::string(2'000'000, 'x'));
    EXPECT_EQ(probe->load(request).body, "1.1 2000000");
    request.url = URL::parse(server.url("/refuse"));
    const auto refused = probe->load(request);
    EXPECT_EQ(refused.status, 413) << refused.detail();

    std::vector<std::shared_ptr<URLSessionTask>> tasks;
    for (int i = 0; i < 50; ++i) tasks.push_back(probe->task(server.url("/" + std::to_string(i))));
    for (const auto& task : tasks) task->resume();
    for (const auto& task : tasks) EXPECT_EQ(probe->waitForEnd(task).body, "2.0 0");
}

}  // namespace
}  // namespace vexim::testing
