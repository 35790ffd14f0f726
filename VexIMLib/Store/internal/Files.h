#pragma once

#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "VexIMLib/Store/VXIMMessageStore.h"
#include "VexIMLib/Store/internal/Database.h"

namespace vexim::store {

/// The location of a store.
struct Location {
    std::string path = {};       // of the database; ":memory:" means no file
    std::string temporary = {};  // the folder for attachments if there is no file
    bool isInMemory() const { return path == ":memory:"; }
    std::string attachments() const { return isInMemory() ? temporary : path + "-files"; }
    std::string rescue() const { return path + "-rescue"; }
};

/// The service's origin for comparing: without a slash at its end.
std::string originOf(const std::string& service);
/// The file's path. If the options name a folder, the file's name is made from the user and a
/// number for user and service.
Location locate(const VXIMMessageStoreOptions& options);

/// Makes the file for this user only (0600), if it does not exist. Errors: CannotOpen, ReadOnly,
/// DiskFull.
void prepareFile(const Location& location);
/// Whether the file exists but is empty.
bool isEmpty(const Location& location);
/// After a complete rescue, the file "-rescue" replaces the file; otherwise the rescue starts
/// again.
void finishRescue(const Location& location);
void removeFile(const std::string& path) noexcept;  // ignores errors
/// Whether the file exists. If the path is something else, it fails with CannotOpen.
bool isThere(const std::string& path);

/// Prevents other programs from opening the file for writing. It uses a separate file, because
/// SQLite's locks are lost when any code of the process closes the database file. Error: Locked.
class FileLock {
public:
    explicit FileLock(const std::string& path);
    ~FileLock();
    FileLock(const FileLock&) = delete;
    FileLock& operator=(const FileLock&) = delete;

private:
    int descriptor_ = -1;
};

/// A descriptor, closed with this object.
class Descriptor {
public:
    explicit Descriptor(int number) : number_(number) {}
    ~Descriptor();
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;
    int number() const { return number_; }

private:
    const int number_;
};
/// Writes all bytes. `sentence` is the text of the error.
void writeAll(int descriptor, std::string_view bytes, const char* sentence);

/// Copies a message's file into the folder, which is made if it is missing, and returns the copy's
/// name. The copy survives a power failure.
std::string keepCopy(const std::string& folder, const std::string& file, const std::string& name);
/// Removes the files in a folder that belong to no message, and the folder if it is empty then.
void removeOthers(const std::string& folder, const std::vector<std::string>& names) noexcept;

}  // namespace vexim::store
