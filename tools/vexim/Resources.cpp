#include "Resources.h"

#include <CLI/CLI.hpp>
#include <memory>
#include <string>
#include <vector>

#include "Operation.h"
#include "VexIMLib/VexIMLib.h"

namespace {

using vexim::Array;
using vexim::Dictionary;
using vexim::ErrorPtr;
using vexim::Value;
using Done = VXIMResultCompletion;

/// What the commands take from the command line; each uses what it declares.
struct Arguments {
    std::string kind;
    std::string id;
    std::string other;
    std::vector<std::string> words;
    std::vector<std::string> sort;
    bool detail = false;
    bool json = false;
    double before = 0;
    std::int32_t limit = 20;
    std::int32_t skip = 0;
};

/// "city=Oslo" as an entry. A value that is JSON is taken as such (31, true, ["a"]), anything else
/// as text.
Dictionary entriesOf(const std::vector<std::string>& words) {
    Dictionary entries;
    for (const auto& word : words) {
        const auto equals = word.find('=');
        if (equals == std::string::npos)
            throw CLI::ValidationError("expected KEY=VALUE, not " + word);
        const auto text = word.substr(equals + 1);
        const auto json = vexim::parseJSON(text, vexim::JSONFragments::Allow);
        entries.set(word.substr(0, equals), json.error ? Value(text) : json.value);
    }
    return entries;
}

/// The time before which history is read: what was asked for, else now.
double beforeTime(const Arguments& arguments) {
    return arguments.before > 0 ? arguments.before : vexim::Date::now().timeIntervalSince1970();
}

Value recordOf(const VXIMFriendInfo& info) {
    Dictionary record;
    record.setOrRemove("id", info.uid());
    record.set("online", info.online());
    if (info.ts() != 0) record.set("ts", info.ts());
    record.setOrRemove("from", info.from());
    record.setOrRemove("to", info.to());
    return record;
}
Value recordOf(const VXIMRuntimeObject& object) { return object.dictionaryRepresentation(); }
Value recordOf(VXIMMessage& message) { return message.dictionaryRepresentation(); }

template <class T>
Value recordsOf(const std::optional<std::vector<std::shared_ptr<T>>>& objects) {
    Array records;
    if (objects) {
        for (const auto& object : *objects) records.append(recordOf(*object));
    }
    return records;
}

/// Ends with `result()` when the operation succeeded.
template <class Result>
VXIMBooleanCompletion then(Done done, Result result) {
    return [done, result](bool succeeded, ErrorPtr error) {
        if (!succeeded && !error)
            error =
                vexim::Error::withDescription("vexim", 1, "the service's answer makes no sense");
        done(succeeded ? result() : Value(), std::move(error));
    };
}

VXIMBooleanCompletion onlySuccess(Done done) {
    return then(std::move(done), [] { return Value(); });
}

/// Ends with the records of what was found or read.
auto withRecords(Done done) {
    return [done](const auto& objects, ErrorPtr error) {
        done(error ? Value() : recordsOf(objects), error);
    };
}

std::shared_ptr<VXIMAttributedObject> ownerOfAttributes(const Arguments& arguments) {
    if (arguments.kind == "user") return VXIMUser::userWithId(arguments.id);
    if (arguments.kind == "group") return VXIMGroup::groupWithId(arguments.id);
    return VXIMRoom::roomWithId(arguments.id);
}

class Commands {
public:
    Commands(CLI::App& app, Account& account, std::function<int()>& chosen)
        : app_(app),
          account_(account),
          chosen_(chosen) {}

    void add() {
        addFriends();
        addGroups();
        addRooms();
        addMembers();
        addAttributes();
        addHistory();
        addFind();
        addPassenger();
    }

private:
    using Operation = std::function<void(const Arguments&, Done)>;

    CLI::App& topic(const std::string& name, const std::string& description) {
        auto& command = *app_.add_subcommand(name, description);
        command.require_subcommand(1);
        return command;
    }

    /// A command below a topic (or the topic itself), with the options that all have.
    CLI::App& command(CLI::App& parent, const std::string& name, const std::string& description,
                      Operation operation) {
        auto& command = *parent.add_subcommand(name, description);
        account_.addOptions(command);
        command.add_flag("--json", arguments_->json, "Print JSON");
        command.callback([arguments = arguments_, &account = account_, &chosen = chosen_,
                          operation = std::move(operation)] {
            chosen = [arguments, &account, operation] {
                // its configuration is what requests are made with
                const auto client = account.makeClient();
                return perform(*client, arguments->json ? Output::JSON : Output::Text,
                               [&](Done done) { operation(*arguments, std::move(done)); });
            };
        });
        return command;
    }

    void needs(CLI::App& command, const char* name, std::string& value) {
        command.add_option(name, value)->required();
    }
    void takesId(CLI::App& command, const char* name) { needs(command, name, arguments_->id); }
    void takesOther(CLI::App& command, const char* name) {
        needs(command, name, arguments_->other);
    }
    CLI::Option* takesWords(CLI::App& command, const char* name) {
        return command.add_option(name, arguments_->words);
    }
    CLI::Option* takesEntries(CLI::App& command) {
        return command.add_option("ENTRIES", arguments_->words, "KEY=VALUE …");
    }
    void takesDetail(CLI::App& command) {
        command.add_flag("--detail", arguments_->detail, "Records instead of bare ids");
    }
    void takesKind(CLI::App& command, const std::vector<std::string>& kinds) {
        command.add_option("KIND", arguments_->kind)->required()->check(CLI::IsMember(kinds));
    }

    void addFriends() {
        auto& friends = topic("friends", "A user's friends");
        auto& list = command(friends, "list", "List them", [](const Arguments& given, Done done) {
            auto user = VXIMUser::userWithId(given.id);
            user->fetchFriendsWithDetail(given.detail,
                                         then(done, [user] { return recordsOf(user->friends()); }));
        });
        takesId(list, "USER");
        takesDetail(list);
        auto& show = command(friends, "show", "Show one", [](const Arguments& given, Done done) {
            VXIMUser::userWithId(given.id)->getFriendInfo(
                given.other, [done](const auto& info, ErrorPtr error) {
                    done(info ? recordOf(*info) : Value(), error);
                });
        });
        auto& add =
            command(friends, "add", "Make a user a friend", [](const Arguments& given, Done done) {
                VXIMUser::userWithId(given.id)->addFriendWithUser(
                    given.other, [done](const Value&, ErrorPtr error) { done({}, error); });
            });
        auto& remove =
            command(friends, "remove", "End a friendship", [](const Arguments& given, Done done) {
                VXIMUser::userWithId(given.id)->deleteFriend(given.other, onlySuccess(done));
            });
        for (auto* one : {&show, &add, &remove}) {
            takesId(*one, "USER");
            takesOther(*one, "FRIEND");
        }
    }

    void addGroups() {
        auto& groups = topic("groups", "Groups");
        auto& list =
            command(groups, "list", "List a user's groups", [](const Arguments& given, Done done) {
                auto user = VXIMUser::userWithId(given.id);
                user->fetchGroupsWithDetail(
                    given.detail, then(done, [user] { return recordsOf(user->groups()); }));
            });
        takesId(list, "USER");
        takesDetail(list);
        auto& create =
            command(groups, "create", "Create one, and print its id",
                    [](const Arguments& given, Done done) {
                        auto group = VXIMGroup::groupWithName(
                            given.other, Array::fromStrings(given.words), given.id);
                        group->createWithBlock(then(done, [group] { return group->groupId(); }));
                    });
        takesId(create, "OWNER");
        takesOther(create, "NAME");
        takesWords(create, "MEMBERS");
        takesId(command(groups, "show", "Show one",
                        [](const Arguments& given, Done done) {
                            auto group = VXIMGroup::groupWithId(given.id);
                            group->fetchWithBlock(then(done, [group] { return recordOf(*group); }));
                        }),
                "GROUP");
        auto& rename = command(
            groups, "rename", "Give it another name", [](const Arguments& given, Done done) {
                VXIMGroup::groupWithId(given.id)->updateName(given.other, onlySuccess(done));
            });
        takesId(rename, "GROUP");
        takesOther(rename, "NAME");
        auto& owner = command(
            groups, "owner", "Give it another owner", [](const Arguments& given, Done done) {
                VXIMGroup::groupWithId(given.id)->changeOwner(given.other, onlySuccess(done));
            });
        takesId(owner, "GROUP");
        takesOther(owner, "USER");
        takesId(command(groups, "delete", "Delete it",
                        [](const Arguments& given, Done done) {
                            VXIMGroup::groupWithId(given.id)->deleteWithBlock(onlySuccess(done));
                        }),
                "GROUP");
    }

    void addRooms() {
        auto& rooms = topic("rooms", "Rooms");
        auto& list =
            command(rooms, "list", "List a user's rooms", [](const Arguments& given, Done done) {
                auto user = VXIMUser::userWithId(given.id);
                user->fetchRoomsWithDetail(
                    given.detail, then(done, [user] {
                        Array records;
                        for (const auto& room : user->rooms().value_or(Array())) {
                            if (const auto object = room.as<VXIMRoom>())
                                records.append(recordOf(*object));
                        }
                        return Value(records);
                    }));
            });
        takesId(list, "USER");
        takesDetail(list);
        auto& create = command(
            rooms, "create", "Create one, and print its id", [](const Arguments& given, Done done) {
                VXIMRoom::createWithName(given.other, Array::fromStrings(given.words),
                                         [done](const auto& room, ErrorPtr error) {
                                             then(done, [room] { return room->roomId(); })(
                                                 room != nullptr, error);
                                         });
            });
        takesOther(create, "NAME");
        takesWords(create, "MEMBERS");
        takesId(command(rooms, "show", "Show one",
                        [](const Arguments& given, Done done) {
                            auto room = VXIMRoom::roomWithId(given.id);
                            room->fetchWithBlock(then(done, [room] { return recordOf(*room); }));
                        }),
                "ROOM");
        auto& rename =
            command(rooms, "rename", "Give it another name", [](const Arguments& given, Done done) {
                VXIMRoom::roomWithId(given.id)->updateName(given.other, onlySuccess(done));
            });
        takesId(rename, "ROOM");
        takesOther(rename, "NAME");
        takesId(command(rooms, "delete", "Delete it",
                        [](const Arguments& given, Done done) {
                            VXIMRoom::roomWithId(given.id)->deleteWithBlock(onlySuccess(done));
                        }),
                "ROOM");
    }

    void addMembers() {
        auto& members = topic("members", "Who belongs to a group or a room");
        auto& add = command(members, "add", "Add users", [](const Arguments& given, Done done) {
            const auto users = Array::fromStrings(given.words);
            if (given.kind == "group")
                return VXIMGroup::groupWithId(given.id)->addMembers(users, onlySuccess(done));
            VXIMRoom::roomWithId(given.id)->addMembers(users, onlySuccess(done));
        });
        auto& remove =
            command(members, "remove", "Remove users", [](const Arguments& given, Done done) {
                const auto users = Array::fromStrings(given.words);
                if (given.kind == "group")
                    return VXIMGroup::groupWithId(given.id)->removeMembers(users,
                                                                           onlySuccess(done));
                VXIMRoom::roomWithId(given.id)->removeMembers(users, onlySuccess(done));
            });
        for (auto* one : {&add, &remove}) {
            takesKind(*one, {"group", "room"});
            takesId(*one, "ID");
            takesWords(*one, "USERS")->required();
        }
    }

    void addAttributes() {
        auto& attributes = topic("attributes", "Custom attributes of a user, a group or a room");
        auto& get =
            command(attributes, "get", "Print all, or one", [](const Arguments& given, Done done) {
                auto owner = ownerOfAttributes(given);
                if (!given.other.empty()) return owner->getAttributeForKey(given.other, done);
                owner->fetchAttributesWithCompletion(done);
            });
        auto& set = command(attributes, "set", "Set some, leaving the others",
                            [](const Arguments& given, Done done) {
                                ownerOfAttributes(given)->updateAttributes(entriesOf(given.words),
                                                                           onlySuccess(done));
                            });
        auto& replace = command(attributes, "replace", "Set these and drop all others",
                                [](const Arguments& given, Done done) {
                                    ownerOfAttributes(given)->replaceAttributes(
                                        entriesOf(given.words), onlySuccess(done));
                                });
        auto& clear =
            command(attributes, "delete", "Delete all", [](const Arguments& given, Done done) {
                ownerOfAttributes(given)->deleteAttributesWithCompletion(onlySuccess(done));
            });
        for (auto* one : {&get, &set, &replace, &clear}) {
            takesKind(*one, {"user", "group", "room"});
            takesId(*one, "ID");
        }
        get.add_option("KEY", arguments_->other);
        for (auto* one : {&set, &replace}) takesEntries(*one)->required();
    }

    void addHistory() {
        auto& history = topic("history", "Messages of the past, newest first");
        auto& withFriend =
            command(history, "friend", "Between a user and a friend",
                    [](const Arguments& given, Done done) {
                        VXIMUser::userWithId(given.id)->getLatestChatsWithFriend(
                            given.other, beforeTime(given), given.limit, withRecords(done));
                    });
        takesId(withFriend, "USER");
        takesOther(withFriend, "FRIEND");
        auto& ofGroup =
            command(history, "group", "Of a group", [](const Arguments& given, Done done) {
                VXIMGroup::groupWithId(given.id)->getLatestMessagesBefore(
                    beforeTime(given), given.limit, withRecords(done));
            });
        takesId(ofGroup, "GROUP");
        auto& ofPassenger =
            command(history, "passenger", "Between a passenger and a user",
                    [](const Arguments& given, Done done) {
                        VXIMPassenger::passengerWithId(given.id)->getHistoryMessagesWithUser(
                            given.other, beforeTime(given), given.limit, withRecords(done));
                    });
        takesId(ofPassenger, "PASSENGER");
        takesOther(ofPassenger, "USER");
        for (auto* one : {&withFriend, &ofGroup, &ofPassenger}) {
            one->add_option("--before", arguments_->before, "Seconds since 1970; without it, now");
            one->add_option("--limit", arguments_->limit, "At most so many")->capture_default_str();
        }
    }

    void addFind() {
        auto& find = command(app_, "find", "Search users, groups or rooms by attributes",
                             [](const Arguments& given, Done done) {
                                 auto query = VXIMQuery::query();
                                 for (const auto& [name, value] : entriesOf(given.words))
                                     query->whereAttribute(name, value.description());
                                 query->setOrder(given.sort);
                                 query->setLimit(given.limit);
                                 query->setSkip(given.skip);
                                 if (given.kind == "users")
                                     return query->findUserWithBlock(withRecords(done));
                                 if (given.kind == "groups")
                                     return query->findGroupWithBlock(withRecords(done));
                                 query->findRoomWithBlock(withRecords(done));
                             });
        takesKind(find, {"users", "groups", "rooms"});
        takesEntries(find);
        find.add_option("--sort", arguments_->sort, "Keys by priority; a leading - is descending")
            ->delimiter(',');
        find.add_option("--limit", arguments_->limit, "At most so many")->capture_default_str();
        find.add_option("--skip", arguments_->skip, "Leave out so many at the start")
            ->capture_default_str();
    }

    void addPassenger() {
        auto& passenger = topic("passenger", "Anonymous visitors");
        takesId(command(passenger, "show", "Show one",
                        [](const Arguments& given, Done done) {
                            auto visitor = VXIMPassenger::passengerWithId(given.id);
                            visitor->fetchWithCompletion(
                                then(done, [visitor] { return recordOf(*visitor); }));
                        }),
                "PASSENGER");
        auto& create =
            command(passenger, "create", "Create one, and print its id",
                    [](const Arguments& given, Done done) {
                        VXIMPassenger::createOrUpdatePassengerWithAttributes(
                            entriesOf(given.words), [done](const auto& made, ErrorPtr error) {
                                then(done, [made] { return made->pid(); })(made != nullptr, error);
                            });
                    });
        takesEntries(create);
        auto& update = command(
            passenger, "update", "Change its attributes", [](const Arguments& given, Done done) {
                VXIMPassenger::passengerWithId(given.id)->updatePassengerAttributes(
                    entriesOf(given.words), onlySuccess(done));
            });
        takesId(update, "PASSENGER");
        takesEntries(update)->required();
    }

    CLI::App& app_;
    Account& account_;
    std::function<int()>& chosen_;
    std::shared_ptr<Arguments> arguments_ = std::make_shared<Arguments>();
};

}  // namespace

void addResourceCommands(CLI::App& app, Account& account, std::function<int()>& chosen) {
    Commands(app, account, chosen).add();
}
