#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "Account.h"
#include "Explain.h"
#include "Inbox.h"
#include "Transcript.h"
#include "VexIMLib/VexIMLib.h"

/// The result of an operation, once it has come.
struct Answer {
    bool arrived = false;
    bool succeeded = false;
    vexim::Value result;
    vexim::ErrorPtr error;

    std::string text() const;
};
using AnswerPtr = std::shared_ptr<Answer>;

/// The demo's two users, the events that they receive, and the checks for the chapters.
class Stage {
public:
    // The users, the group and the room that exist when the development service starts.
    static constexpr const char* kAlice = "alice";
    static constexpr const char* kBob = "bob";
    static constexpr const char* kBobsPassword = "bob-secret";
    static constexpr const char* kGroup = "demo-group";
    static constexpr const char* kRoom = "demo-room";

    Stage(const Account& account, bool isJSON);

    /// Starts a login. If the connection fails, the login would get no answer, so it fails with the
    /// connection's error.
    static AnswerPtr login(const std::shared_ptr<VXIMClient>& client,
                           const Credentials& credentials);
    /// Starts an operation whose completion gets a boolean, or a result.
    static AnswerPtr flag(const std::function<void(VXIMBooleanCompletion)>& operation);
    static AnswerPtr result(const std::function<void(VXIMResultCompletion)>& operation);

    bool succeeds(const std::string& step, const AnswerPtr& answer);
    void refuses(const std::string& step, const AnswerPtr& answer, const std::string& domain,
                 const std::optional<std::string>& description = std::nullopt);
    void expectStatus(const std::string& step, const VXIMClient& client, VXIMClientStatus status);
    void expectHeard(const std::string& step, const Inbox& inbox, const std::string& line,
                     std::ptrdiff_t times = 1);
    /// Checks something that must hold now.
    void expectNow(const std::string& step, bool holds, const std::string& seen);

    Transcript transcript;
    std::shared_ptr<VXIMClient> alice;
    std::shared_ptr<VXIMClient> bob;
    std::shared_ptr<Inbox> aliceHears = std::make_shared<Inbox>();
    std::shared_ptr<Inbox> bobHears = std::make_shared<Inbox>();
};
