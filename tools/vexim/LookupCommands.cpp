// Commands for histories, attributes, searches by attributes, and passengers.

#include <stdexcept>

#include "Attachment.h"
#include "LocalTime.h"
#include "ResourceCommands.h"
#include "ResourceOperation.h"

namespace {

using vexim::Array;
using vexim::Dictionary;
using vexim::ErrorPtr;
using vexim::Value;

constexpr std::int32_t kUsualLimit = 20;

const OptionSpec kLimit{"--limit", "NUMBER", "How many at most; 20 by default"};
const WordSpec kEntries{"KEY=VALUE", "Attributes; a value may be JSON", Count::Some};
const WordSpec kPassenger{"PASSENGER", "The passenger's id"};

/// Messages as people read them: time, sender, text.
Value shownMessages(const Value& records) {
    Array rows;
    const auto* array = records.asArray();
    for (const auto& record : array != nullptr ? *array : Array()) {
        const auto* payload = record.asDictionary();
        const auto message =
            VXIMMessage::initWithPayloadDictionary(payload != nullptr ? *payload : Dictionary());
        Dictionary row;
        row.set("time", localTime(static_cast<std::int64_t>(message->sendTimestamp() * 1000)));
        row.set("from", message->sender()->userId().description());
        row.set("text", contentsOf(*message));
        rows.append(row);
    }
    return rows;
}

void readHistory(const Given& given, const std::string& me, Done done) {
    const auto millis = timeOf("--before", given.one("--before"));
    const double before =
        millis ? static_cast<double>(*millis) / 1000 : vexim::Date::now().timeIntervalSince1970();
    const auto limit = given.number("--limit", 1, kUsualLimit);
    if (given.peer.groupId) {
        return VXIMGroup::groupWithId(*given.peer.groupId)
            ->getLatestMessagesBefore(before, limit, withRecords(done));
    }
    if (const auto passenger = given.find("--passenger")) {
        return VXIMPassenger::passengerWithId(*passenger)
            ->getHistoryMessagesWithUser(me, before, limit, withRecords(done));
    }
    VXIMUser::userWithId(me)->getLatestChatsWithFriend(*given.peer.friendId, before, limit,
                                                       withRecords(done));
}

int runHistory(const Given& given) {
    if (!given.peer.isNamed() && !given.has("--passenger"))
        throw std::invalid_argument("say which with --friend, --group or --passenger");
    return running(given.peer.groupId ? Acts::ForNobody : Acts::ForAUser, readHistory,
                   shownMessages)(given);
}

/// Runs on the attributes of a group or a room if one is named, otherwise on the user's.
std::function<int(const Given&)> onAttributes(
    std::function<void(VXIMAttributedObject&, const Given&, Done)> act) {
    return [act = std::move(act)](const Given& given) {
        return running(given.peer.isNamed() ? Acts::ForNobody : Acts::ForAUser,
                       [&act](const Given& named, const std::string& me, Done done) {
                           std::shared_ptr<VXIMAttributedObject> owner;
                           if (named.peer.groupId) {
                               owner = VXIMGroup::groupWithId(*named.peer.groupId);
                           } else if (named.peer.roomId) {
                               owner = VXIMRoom::roomWithId(*named.peer.roomId);
                           } else {
                               owner = VXIMUser::userWithId(me);
                           }
                           act(*owner, named, std::move(done));
                       })(given);
    };
}

std::vector<CommandSpec> attributeCommands() {
    const std::vector<OptionSpec> owners = {
        {"--group", "ID", "Of this group; without it and --room, yours"},
        {"--room", "ID", "Of this room"}};
    return {
        {"attributes get",
         "Print all, or one",
         {{"KEY", "The attribute's name; without it, all", Count::Optional}},
         owners,
         onAttributes([](VXIMAttributedObject& owner, const Given& given, Done done) {
             if (const auto key = given.find("KEY")) return owner.getAttributeForKey(*key, done);
             owner.fetchAttributesWithCompletion(done);
         })},
        {"attributes set",
         "Set some; the others stay",
         {kEntries},
         owners,
         onAttributes([](VXIMAttributedObject& owner, const Given& given, Done done) {
             owner.updateAttributes(entriesOf(given.all("KEY=VALUE")), onlySuccess(done));
         })},
        {"attributes replace",
         "Set these and remove all others",
         {kEntries},
         owners,
         onAttributes([](VXIMAttributedObject& owner, const Given& given, Done done) {
             owner.replaceAttributes(entriesOf(given.all("KEY=VALUE")), onlySuccess(done));
         })},
        {"attributes delete",
         "Delete all",
         {},
         owners,
         onAttributes([](VXIMAttributedObject& owner, const Given&, Done done) {
             owner.deleteAttributesWithCompletion(onlySuccess(done));
         })},
    };
}

void find(const Given& given, const std::string&, Done done) {
    auto query = VXIMQuery::query();
    for (const auto& [name, value] : entriesOf(given.all("KEY=VALUE")))
        query->whereAttribute(name, value.description());
    query->setOrder(given.all("--sort"));
    query->setLimit(given.number("--limit", 1, kUsualLimit));
    query->setSkip(given.number("--skip", 0, 0));
    const auto kind = given.one("KIND");
    if (kind == "users") return query->findUserWithBlock(withRecords(done));
    if (kind == "groups") return query->findGroupWithBlock(withRecords(done));
    query->findRoomWithBlock(withRecords(done));
}

std::vector<CommandSpec> passengerCommands() {
    return {
        {"passengers show",
         "Show one",
         {kPassenger},
         {},
         running(Acts::ForNobody,
                 [](const Given& given, const std::string&, Done done) {
                     auto visitor = VXIMPassenger::passengerWithId(given.one("PASSENGER"));
                     visitor->fetchWithCompletion(
                         then(done, [visitor] { return recordOf(*visitor); }));
                 })},
        {"passengers create",
         "Create one, and print its id",
         {{kEntries.name, kEntries.help, Count::Any}},
         {},
         running(Acts::ForNobody,
                 [](const Given& given, const std::string&, Done done) {
                     VXIMPassenger::createOrUpdatePassengerWithAttributes(
                         entriesOf(given.all("KEY=VALUE")),
                         [done](const auto& made, ErrorPtr error) {
                             then(done, [made] { return made->pid(); })(made != nullptr, error);
                         });
                 })},
        {"passengers update",
         "Change its attributes",
         {kPassenger, kEntries},
         {},
         running(Acts::ForNobody,
                 [](const Given& given, const std::string&, Done done) {
                     VXIMPassenger::passengerWithId(given.one("PASSENGER"))
                         ->updatePassengerAttributes(entriesOf(given.all("KEY=VALUE")),
                                                     onlySuccess(done));
                 })},
    };
}

}  // namespace

std::vector<CommandSpec> lookupCommands() {
    std::vector<CommandSpec> all = {
        {"history",
         "Read earlier messages, the newest first",
         {},
         {{"--friend", "ID", "Between you and this friend"},
          {"--group", "ID", "Of this group"},
          {"--passenger", "ID", "Between you and this anonymous visitor"},
          {"--before", "TIME", kTimeHelp},
          kLimit},
         runHistory},
        {"find",
         "Find users, groups or rooms by their attributes",
         {{"KIND", "users, groups or rooms", Count::One, {"users", "groups", "rooms"}},
          {kEntries.name, "Attributes that they have; without any, all are listed", Count::Any}},
         {{"--sort", "KEY", "Sort by this key; a - in front reverses the order; may be repeated",
           false, true},
          kLimit,
          {"--skip", "NUMBER", "Skip this many results"}},
         running(Acts::ForNobody, find)},
    };
    for (auto& commands : {attributeCommands(), passengerCommands()})
        all.insert(all.end(), commands.begin(), commands.end());
    return all;
}
