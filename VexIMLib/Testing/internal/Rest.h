#pragma once

#include <functional>
#include <string>
#include <vector>

#include "VexIMLib/Testing/FakeService.h"
#include "VexIMLib/Testing/internal/Attachments.h"
#include "VexIMLib/Testing/internal/Live.h"
#include "VexIMLib/Testing/internal/Paths.h"
#include "VexIMLib/Testing/internal/Store.h"

namespace vexim::testing::fake {

/// The argument of a path's handler.
struct Call {
    const FakeService::Request& request;
    const Parameters& parameters;
    const Query& query;
    const Value& body;  // nil when there is none

    const std::string& id() const { return parameters[0]; }
};

/// The REST interface: a table of methods and paths with their handlers.
class Rest {
public:
    Rest(const FakeService::Options& options, Store& store, Live& live);

    /// Checks the signature, finds the path, and answers. Every failure is answered with
    /// {"errorCode", "errorMessage"}.
    FakeService::Answer answer(const FakeService::Request& request);
    void forgetFiles() { attachments_ = {}; }

private:
    /// nil means {"success": true}.
    using Handler = std::function<Value(const Call&)>;
    void on(std::string method, std::string pattern, Handler handler);

    void addUsers();
    void addFriends();
    void addGroups();
    void addRooms();
    void addPassengers();
    void addSystem();
    /// The attributes at `path`, and one of them at `pathOfOne`; `find` gives the owner.
    void addAttributes(const char* path, const char* pathOfOne,
                       const std::function<Record&(const std::string&)>& find);

    FakeService::Answer find(const FakeService::Request& request);
    Value upload(const FakeService::Request& request);

    // The JSON forms of records.
    Value user(const Person& person);
    Value friendOf(const Person& person, const std::string& friendId);
    Value group(const Place& group);
    Value room(const Place& room);
    Value passenger(const Record& passenger);
    /// At most "limit" messages from before "ts". Without them, or with a 0: the newest 20.
    Value history(const std::string& conversation, const Query& query);
    void addRecent(Dictionary& record, const std::string& conversation);

    struct Route {
        std::string method;
        std::string pattern;
        Handler handler;
    };
    const FakeService::Options& options_;
    Store& store_;
    Live& live_;
    Attachments attachments_;
    std::vector<Route> routes_;
};

}  // namespace vexim::testing::fake
