#pragma once

#include <map>
#include <string>
#include <string_view>

#include "VexIMLib/Testing/FakeService.h"

namespace vexim::testing::fake {

/// Uploaded files, in memory.
class Attachments {
public:
    /// Keeps the file in the field "attachment" of a multipart form (RFC 7578) under `name` with
    /// the file's own extension, and returns that. Throws when there is none.
    std::string receive(const FakeService::Request& request, const std::string& name);
    bool isPicture(const std::string& name) const;
    /// The file, whole or the range that the request asks for (RFC 9110, 14.2: one range).
    FakeService::Answer answer(const std::string& name, const FakeService::Request& request) const;

private:
    struct File {
        std::string type;
        std::string bytes;
    };
    std::map<std::string, File> files_;
};

}  // namespace vexim::testing::fake
