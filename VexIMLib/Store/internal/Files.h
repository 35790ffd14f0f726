#pragma once

#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "VexIMLib/Store/VXIMMessageStore.h"
#include "VexIMLib/Store/internal/Database.h"

namespace vexim::store {

/// Where a store lies.
struct Location {
    std::string path = {};       // of the database; ":memory:" is none
    std::string temporary = {};  // the folder of the attachments of such a one
    bool isInMemory() const { return path == ":memory:"; }
    std::string attachments() const { return isInMemory() ? temporary : path + "-files"; }
    std::string rescue() const { return path + "-rescue"; }
};

/// The service's origin as it is compared: without a slash at its end.
std::string originOf(const std::string& service);
/// The file, also when the options name a folder: the name is made of the user and a number for
/// user and service.
Location locate(const VXIMMessageStoreOptions& options);

/// Makes the file for this user alone (0600), when there is none. CannotOpen, ReadOnly, DiskFull.
void prepareFile(const Location& location);
/// Whether the file is there, but nothing is in it.
bool isEmpty(const Location& location);
/// "-rescue" takes the file's place when a rescue was complete; otherwise it is begun anew.
void finishRescue(const Location& location);
void removeFile(const std::string& path) noexcept;  // in silence
/// Whether there is such a file; anything else at the path fails with CannotOpen.
bool isThere(const std::string& path);

/// Keeps other programs from opening the file for writing. (A file beside it: SQLite's own locks on
/// a file are lost when anybody in the process closes it.) Failure: Locked.
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
/// Writes all of it; `sentence` says what failed.
void writeAll(int descriptor, std::string_view bytes, const char* sentence);

/// Copies a message's file into the folder, which is made when it is missing; the copy's name. It
/// survives a power cut.
std::string keepCopy(const std::string& folder, const std::string& file, const std::string& name);
/// Removes the files of a folder that no message has; the folder itself when none is left.
void removeOthers(const std::string& folder, const std::vector<std::string>& names) noexcept;

}  // namespace vexim::store
