#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <random>
#include <source_location>
#include <string>
#include <utility>
#include <vector>

#include "VexIMLib/Testing/ManualClock.h"
#include "VexIMLib/VexIMLib.h"
#include "VexIMLib/internal/Client/VXIMClientImpl.h"
#include "support/Completions.h"
#include "support/ScriptedServer.h"
#include "support/TemporaryFolder.h"

namespace vexim::testing {

/// A small application that acts at random: it makes, uses and releases clients, delegates,
/// observers, resources and transfers at any moment, even inside their own callbacks. Each seed is
/// one run.
///
/// Its requests go to the shared configuration's service, which answers by `answer`.
class ScheduleWorld : public std::enable_shared_from_this<ScheduleWorld> {
public:
    /// Lets the other side of the live connections do something. Does nothing if the servers are
    /// real.
    using ServerAct = std::function<void(std::mt19937& chance)>;

    /// The file in `folder` that is uploaded; downloads go to "download" in the same folder.
    static constexpr const char* kPicture = "picture.png";

    ScheduleWorld(std::uint32_t seed, ManualClock& clock, const TemporaryFolder& folder,
                  VXIMClient::Impl::SocketFactory makeSocket, ServerAct server);

    /// Runs `steps` actions, and those that callbacks add, then releases everything.
    void live(int steps);
    /// The objects that are still alive although nobody holds them; empty if all is well.
    std::string leftovers() const;

    /// The service's answer, good or bad, by the last digit in the path. False if it then closes
    /// the connection.
    static bool answer(ScriptedServer::Connection& connection, const WireRequest& request);

private:
    class Delegate;
    template <class T>
    using Bag = std::vector<std::shared_ptr<T>>;

    void act();
    void expectAllowedStates() const;
    /// Called in every callback. Sometimes does something more.
    void hook();
    std::size_t below(std::size_t bound) { return chance_() % bound; }
    Value someId(const char* kind) { return kind + std::to_string(below(10)); }
    std::shared_ptr<VXIMMessage> someMessage();
    template <class T>
    std::shared_ptr<T> pick(const Bag<T>& bag) {
        return bag.empty() ? nullptr : bag[below(bag.size())];
    }
    template <class T>
    std::shared_ptr<T> keep(Bag<T>& bag, std::shared_ptr<T> object) {
        watched_.emplace_back(typeid(T).name(), object);
        bag.push_back(object);
        return object;
    }
    /// Releases one of the objects, perhaps the last reference to it.
    template <class T>
    void release(Bag<T>& bag) {
        if (bag.empty()) return;
        const auto at = bag.begin() + static_cast<std::ptrdiff_t>(below(bag.size()));
        const auto last = std::exchange(*at, nullptr);
        bag.erase(at);
    }
    /// A completion that runs random actions, for any signature.
    template <class Completion>
    Completion mustRun(std::source_location where = std::source_location::current());
    template <class Completion>
    Completion mayRun(std::source_location where = std::source_location::current());
    VXIMProgress progress();

    // Actions.
    void makeClient();
    void makeDelegate();
    void makeObserver();
    void makeResource();
    void logIn();
    void logOut();
    void sendMessage();
    void sendSystemMessage();
    void sendAttachment();
    void downloadAttachment();
    void useUser();
    void useGroup();
    void useRoom();
    void usePassenger();
    void search();
    void releaseSomething();
    void actElsewhere();

    std::mt19937 chance_;
    ManualClock& clock_;
    const TemporaryFolder& folder_;
    const VXIMClient::Impl::SocketFactory makeSocket_;
    const ServerAct server_;
    int actionsLeft_ = 0;
    int depth_ = 0;

    Bag<VXIMClient> clients_;
    Bag<Delegate> delegates_;
    Bag<Delegate> observers_;
    Bag<VXIMUser> users_;
    Bag<VXIMGroup> groups_;
    Bag<VXIMRoom> rooms_;
    Bag<VXIMPassenger> passengers_;
    Bag<VXIMFriendInfo> friends_;
    Bag<VXIMMessage> messages_;
    Bag<VXIMTransfer> transfers_;
    std::vector<std::pair<std::string, std::weak_ptr<void>>> watched_;
};

}  // namespace vexim::testing
