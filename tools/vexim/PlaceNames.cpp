#include "PlaceNames.h"

#include "VexIMLib/VexIMLib.h"
#include "chat/Text.h"

void PlaceNames::read(const VXIMClient& client, std::function<void()> ended) {
    const auto user = client.currentUser();
    const auto self = shared_from_this();
    user->fetchGroupsWithDetail(true, [self, user, ended = std::move(ended)](
                                          bool, const vexim::ErrorPtr&) {
        for (const auto& group : user->groups().value_or(std::vector<std::shared_ptr<VXIMGroup>>()))
            self->remember("group " + group->groupId().description(), group->name());
        self->readRooms(user, ended);
    });
}

void PlaceNames::readRooms(const std::shared_ptr<VXIMUser>& user,
                           const std::function<void()>& ended) {
    const auto self = shared_from_this();
    user->fetchRoomsWithDetail(true, [self, user, ended](bool, const vexim::ErrorPtr&) {
        for (const auto& value : user->rooms().value_or(vexim::Array())) {
            if (const auto room = value.as<VXIMRoom>())
                self->remember("room " + room->roomId().description(), room->name());
        }
        ended();
    });
}

void PlaceNames::remember(const std::string& place, const vexim::Value& name) {
    if (const auto text = name.asString(); text && !text->empty()) names_[place] = *text;
}

std::string PlaceNames::added(const std::string& line, const vexim::Dictionary& event) const {
    const auto place = event.get("kind").description() + " " + event.get("id").description();
    const auto name = names_.find(place);
    if (name == names_.end() || !line.starts_with(place)) return line;
    return place + " (" + chat::harmlessLine(name->second) + ")" + line.substr(place.size());
}
