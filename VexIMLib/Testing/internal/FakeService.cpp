#include "VexIMLib/Testing/FakeService.h"

#include <boost/asio/executor_work_guard.hpp>
#include <boost/asio/post.hpp>
#include <future>
#include <stdexcept>
#include <thread>
#include <utility>

#include "VexIMLib/Foundation/JSON.h"
#include "VexIMLib/Foundation/MainQueue.h"
#include "VexIMLib/Testing/internal/Server.h"
#include "VexIMLib/internal/Platform/Threads/ClockTimer.h"

namespace vexim::testing {

namespace {

Dictionary textMessage(std::string_view text) {
    return {{"content", Dictionary{{"media", 0}, {"body", text}}}, {"ts", fake::nowMillis()}};
}

}  // namespace

/// The service's thread and its data.
class FakeService::Impl : public std::enable_shared_from_this<FakeService::Impl> {
public:
    explicit Impl(Options given) : options(std::move(given)) {
        if (options.socketIOLine < 2 || options.socketIOLine > 4)
            throw std::invalid_argument("socketIOLine must be 2, 3 or 4");
        port = server.listen(0);
        url = "http://127.0.0.1:" + std::to_string(port);
    }

    void begin() {
        clockListener =
            detail::onClockTurned([weak = weak_from_this()](std::shared_ptr<void> checking) {
                const auto self = weak.lock();
                if (!self) return;
                // Do not capture `self`: functions posted after the end are destroyed with the
                // context.
                boost::asio::post(self->context,
                                  [&loop = self->context, checking = std::move(checking)] {
                                      checkClock(loop, checking);
                                  });
            });
        thread = std::thread([this] { context.run(); });
    }

    void end() {
        clockListener = nullptr;
        run([this] {
            server.close();
            work.reset();  // the thread ends with the last handler
        });
        thread.join();
    }

    /// Runs `function` on the service's thread and waits for it.
    template <class Function>
    auto run(Function function) -> decltype(function()) {
        if (std::this_thread::get_id() == thread.get_id()) return function();
        std::packaged_task<decltype(function())()> task(std::move(function));
        auto result = task.get_future();
        boost::asio::post(context, [&task] { task(); });
        return result.get();
    }

    void say(std::string_view from, std::string_view to, int receiverType, std::string_view text) {
        run([&, this] {
            Dictionary message = textMessage(text);
            message.set("to", Dictionary{{"id", to}, {"type", receiverType}});
            service.live.say(std::string(from), message);
        });
    }

    void plan(fake::Plan plan) {
        if (plan.times == 0) return;
        run([&, this] { service.plans.push_back(std::move(plan)); });
    }

    const Options options;
    std::string url;

    // The service's thread only.
    boost::asio::io_context context{1};
    boost::asio::executor_work_guard<boost::asio::io_context::executor_type> work{
        context.get_executor()};
    fake::Service service{options, [] { MainQueue::shared().async([] {}); }};
    fake::Server server{context, service};
    std::uint16_t port = 0;

private:
    std::shared_ptr<void> clockListener;
    std::thread thread;
};

FakeService::FakeService() : FakeService(Options{}) {}

FakeService::FakeService(Options options) : impl_(std::make_shared<Impl>(std::move(options))) {
    impl_->begin();
}

FakeService::~FakeService() { impl_->end(); }

const std::string& FakeService::url() const noexcept { return impl_->url; }

std::shared_ptr<VXIMClientConfiguration> FakeService::configuration() const {
    auto configuration = VXIMClientConfiguration::defaultConfiguration();
    configuration->setAppId(impl_->options.appId);
    configuration->setClientKey(impl_->options.clientKey);
    configuration->setInstallationId("installation");
    configuration->setNsp(impl_->options.nsp);
    configuration->setSocketURL(URL::parse(impl_->url));
    return configuration;
}

void FakeService::stop() {
    impl_->run([this] { impl_->server.close(); });
}

void FakeService::start() {
    impl_->run([this] {
        if (!impl_->server.isListening()) impl_->server.listen(impl_->port);
    });
}

void FakeService::reset() {
    impl_->run([this] {
        impl_->service.reset();
        impl_->server.cut();
    });
}

// The data

void FakeService::addUser(User user) {
    impl_->run([this, user = std::move(user)] { impl_->service.store.addUser(user); });
}

void FakeService::addFriendship(std::string_view user, std::string_view other) {
    impl_->run([&, this] { impl_->service.store.befriend(user, other); });
}

void FakeService::addGroup(std::string id, std::string owner, std::vector<std::string> members,
                           Dictionary attributes) {
    fake::Place group;
    group.id = std::move(id);
    group.owner = std::move(owner);
    group.members = std::move(members);
    group.attributes = std::move(attributes);
    impl_->run([&, this] { impl_->service.store.addGroup(std::move(group)); });
}

void FakeService::addRoom(std::string id, std::string name, std::vector<std::string> members,
                          Dictionary attributes) {
    fake::Place room;
    room.id = std::move(id);
    room.name = std::move(name);
    room.members = std::move(members);
    room.attributes = std::move(attributes);
    impl_->run([&, this] { impl_->service.store.addRoom(std::move(room)); });
}

// What other people do

void FakeService::say(std::string_view from, std::string_view to, std::string_view text) {
    impl_->say(from, to, 0, text);
}
void FakeService::sayToGroup(std::string_view from, std::string_view group, std::string_view text) {
    impl_->say(from, group, 1, text);
}
void FakeService::sayToRoom(std::string_view from, std::string_view room, std::string_view text) {
    impl_->say(from, room, 2, text);
}

void FakeService::saySystem(std::string_view text) {
    impl_->run([&, this] { impl_->service.live.sendToAll("sys", {textMessage(text)}); });
}

void FakeService::setOnline(std::string_view user, bool online) {
    impl_->run([&, this] { impl_->service.live.setOnline(std::string(user), online); });
}

std::size_t FakeService::emit(std::string_view user, std::string_view event, const Array& items) {
    return impl_->run([&, this] { return impl_->service.live.send(user, event, items); });
}

// Scripts

void FakeService::answer(std::string method, std::string pattern, Answer answer,
                         std::size_t times) {
    fake::bodyText(answer);
    this->answer(
        std::move(method), std::move(pattern),
        [answer = std::move(answer)](const Request&) { return answer; }, times);
}

void FakeService::answer(std::string method, std::string pattern,
                         std::function<Answer(const Request&)> make, std::size_t times) {
    impl_->plan({.method = std::move(method),
                 .pattern = std::move(pattern),
                 .times = times,
                 .make = std::move(make)});
}

void FakeService::fail(std::string method, std::string pattern, Fault fault, std::size_t times) {
    impl_->plan({.method = std::move(method),
                 .pattern = std::move(pattern),
                 .times = times,
                 .fault = fault});
}

void FakeService::delay(std::string method, std::string pattern, std::chrono::nanoseconds delay,
                        std::size_t times) {
    impl_->plan({.method = std::move(method),
                 .pattern = std::move(pattern),
                 .times = times,
                 .delay = delay});
}

void FakeService::setLogins(Logins logins) {
    impl_->run([&, this] { impl_->service.live.policy = logins; });
}

std::size_t FakeService::dropConnections(std::string_view user) {
    return impl_->run([&, this] { return impl_->service.live.drop(user); });
}

std::size_t FakeService::setSilent(bool silent, std::string_view user) {
    return impl_->run([&, this] { return impl_->service.live.setSilent(silent, user); });
}

// What came

Value FakeService::Request::json() const { return parseJSON(body).value; }

std::string FakeService::Message::body() const {
    return payload.get("content").get("body").asString().value_or("");
}

std::vector<FakeService::Request> FakeService::requests() const {
    return impl_->run([this] { return impl_->service.requests.all(); });
}

std::vector<Dictionary> FakeService::logins() const {
    return impl_->run([this] { return impl_->service.live.logins.all(); });
}

std::vector<FakeService::Message> FakeService::messages() const {
    return impl_->run([this] { return impl_->service.live.messages.all(); });
}

std::size_t FakeService::connections(std::string_view user) const {
    return impl_->run([&, this] { return impl_->service.live.sessions(user); });
}

void FakeService::forgetWhatCame() {
    impl_->run([this] {
        impl_->service.requests.clear();
        impl_->service.live.logins.clear();
        impl_->service.live.messages.clear();
    });
}

}  // namespace vexim::testing
