#include "Stage.h"

#include "Login.h"

std::string Answer::text() const {
    if (!arrived) return "no answer";
    if (succeeded) return "success, " + result.description();
    return error ? explain(error) : result.description();
}

Stage::Stage(const Account& account, bool isJSON)
    : transcript(std::chrono::seconds(28), isJSON),
      alice(account.makeClient()),
      bob(account.makeClient()) {
    alice->setDelegate(aliceHears);
    bob->setDelegate(bobHears);
}

AnswerPtr Stage::flag(const std::function<void(VXIMBooleanCompletion)>& operation) {
    auto answer = std::make_shared<Answer>();
    operation([answer](bool succeeded, vexim::ErrorPtr error) {
        *answer = {true, succeeded, {}, std::move(error)};
    });
    return answer;
}

AnswerPtr Stage::login(const std::shared_ptr<VXIMClient>& client, const Credentials& credentials) {
    auto answer = std::make_shared<Answer>();
    logInOnce(client, credentials, [answer](const std::string& complaint) {
        *answer = {true, complaint.empty(), complaint, nullptr};
    });
    return answer;
}

AnswerPtr Stage::result(const std::function<void(VXIMResultCompletion)>& operation) {
    auto answer = std::make_shared<Answer>();
    operation([answer](vexim::Value result, vexim::ErrorPtr error) {
        *answer = {true, !error, std::move(result), error};
    });
    return answer;
}

bool Stage::succeeds(const std::string& step, const AnswerPtr& answer) {
    return transcript.expect(
        step, [&] { return answer->arrived; }, [&] { return answer->succeeded; },
        [&] { return answer->text(); });
}

void Stage::refuses(const std::string& step, const AnswerPtr& answer, const std::string& domain,
                    const std::optional<std::string>& description) {
    const auto refused = [&] {
        return !answer->succeeded && answer->error && answer->error->domain() == domain &&
               (!description || answer->error->localizedDescription() == *description);
    };
    transcript.expect(
        step, [&] { return answer->arrived; }, refused, [&] { return answer->text(); });
}

void Stage::expectStatus(const std::string& step, const VXIMClient& client,
                         VXIMClientStatus status) {
    const auto reached = [&] { return client.status() == status; };
    transcript.expect(step, reached, reached,
                      [&] { return "status " + std::to_string(client.status()); });
}

void Stage::expectHeard(const std::string& step, const Inbox& inbox, const std::string& line,
                        std::ptrdiff_t times) {
    const auto heard = [&] { return inbox.count(line) >= times; };
    transcript.expect(step, heard, heard, [&] { return inbox.text(); });
}

void Stage::expectNow(const std::string& step, bool holds, const std::string& seen) {
    transcript.expect(
        step, [] { return true; }, [&] { return holds; }, [&] { return seen; });
}
