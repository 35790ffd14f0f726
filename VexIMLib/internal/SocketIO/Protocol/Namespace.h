#pragma once

#include <string>
#include <string_view>

namespace vexim {

/// A namespace of a Socket.IO server, in the form that goes into packets.
struct Namespace {
    std::string name = "/";
    std::string query = {};  // for servers of revision 3
};

/// Reads what an application gives, such as "chat" or "/chat?token=x". A missing slash is added.
/// Commas are left out, because a comma would end the name in a packet.
Namespace parseNamespace(std::string_view given);

}  // namespace vexim
