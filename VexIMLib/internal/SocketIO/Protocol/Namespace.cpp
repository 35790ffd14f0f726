#include "VexIMLib/internal/SocketIO/Protocol/Namespace.h"

#include <algorithm>

namespace vexim {

Namespace parseNamespace(std::string_view given) {
    Namespace parsed;
    const auto question = std::min(given.find('?'), given.size());
    parsed.name = given.substr(0, question);
    std::erase(parsed.name, ',');
    if (!parsed.name.starts_with('/')) parsed.name.insert(0, "/");
    if (question < given.size()) parsed.query = given.substr(question + 1);
    return parsed;
}

}  // namespace vexim
