#pragma once

#include <functional>
#include <map>
#include <memory>
#include <string>

#include "VexIMLib/Foundation/Dictionary.h"

class VXIMClient;
class VXIMUser;

/// The names of the user's groups and rooms, to be shown with their ids.
class PlaceNames : public std::enable_shared_from_this<PlaceNames> {
public:
    /// Fetches them from the service. `ended` runs once, even if that fails.
    void read(const VXIMClient& client, std::function<void()> ended);
    /// Adds the name, if it is known, to a line about an event: "group g1 (Climbing), alice:
    /// hello".
    std::string added(const std::string& line, const vexim::Dictionary& event) const;

private:
    void readRooms(const std::shared_ptr<VXIMUser>& user, const std::function<void()>& ended);
    void remember(const std::string& place, const vexim::Value& name);
    std::map<std::string, std::string> names_;  // keys like "group g1" or "room r1"
};
