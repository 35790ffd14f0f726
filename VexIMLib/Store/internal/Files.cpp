#include "VexIMLib/Store/internal/Files.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <system_error>

#include "VexIMLib/Store/VXIMStoreErrors.h"

namespace vexim::store {
namespace {

constexpr mode_t kOursAlone = S_IRUSR | S_IWUSR;

void sync(const std::string& path) {
    const Descriptor file(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
    if (file.number() < 0 || ::fsync(file.number()) != 0) {
        failWithSystem(VXIMStoreErrorFailed, "A file could not be written to the disk.", errno);
    }
}

/// The characters of a user's id that are allowed in a file name.
std::string plain(const std::string& id) {
    std::string name;
    for (const char c : id) {
        const bool isPlain = (c >= '0' && c <= '9') || (c >= 'a' && c <= 'z') ||
                             (c >= 'A' && c <= 'Z') || c == '-' || c == '_';
        name += isPlain ? c : '_';
    }
    return name.substr(0, 64);
}

std::string digitsOf(std::string_view text) {
    std::uint64_t hash = 0xcbf29ce484222325U;  // FNV-1a; the file itself records its user, too
    for (const char each : text) hash = (hash ^ static_cast<unsigned char>(each)) * 0x100000001b3U;
    char digits[17];
    std::snprintf(digits, sizeof digits, "%016llx", static_cast<unsigned long long>(hash));
    return digits;
}

std::string temporaryFolder() {
    std::string path = (std::filesystem::temp_directory_path() / "vexim-XXXXXX").string();
    if (::mkdtemp(path.data()) == nullptr)
        failWithSystem(VXIMStoreErrorFailed, "The folder for attachments cannot be used.", errno);
    return path;
}

}  // namespace

Descriptor::~Descriptor() {
    if (number_ >= 0) ::close(number_);
}

void writeAll(int descriptor, std::string_view bytes, const char* sentence) {
    while (!bytes.empty()) {
        const ssize_t written = ::write(descriptor, bytes.data(), bytes.size());
        if (written < 0 && errno == EINTR) continue;
        if (written < 0) failWithSystem(VXIMStoreErrorFailed, sentence, errno);
        bytes.remove_prefix(static_cast<std::size_t>(written));
    }
}

std::string originOf(const std::string& service) {
    std::string origin = service;
    while (origin.ends_with('/')) origin.pop_back();
    return origin;
}

Location locate(const VXIMMessageStoreOptions& options) {
    if (options.path.empty()) fail(VXIMStoreErrorCannotOpen, "The message store has no path.");
    if (options.path == ":memory:") return {options.path, temporaryFolder()};
    std::error_code ignored;
    const bool isFolder = std::filesystem::is_directory(options.path, ignored);
    if (!isFolder && !options.path.ends_with('/')) return {options.path, {}};
    const std::string whose = originOf(options.service) + '\n' + options.userId;
    return {(std::filesystem::path(options.path) /
             (plain(options.userId) + "-" + digitsOf(whose) + ".vexim"))
                .string(),
            {}};
}

bool isThere(const std::string& path) {
    struct stat found {};
    if (::stat(path.c_str(), &found) != 0) {
        if (errno == ENOENT) return false;
        failWithSystem(VXIMStoreErrorCannotOpen, "The message store's file cannot be reached.",
                       errno);
    }
    if (!S_ISREG(found.st_mode))
        fail(VXIMStoreErrorCannotOpen, "The message store's path is not a file.");
    return true;
}

void prepareFile(const Location& location) {
    if (location.isInMemory()) return;
    const bool isNew = !isThere(location.path);
    if (isNew) {
        // Left by a deleted file: SQLite must not use it for the new one.
        removeFile(location.path + "-wal");
        removeFile(location.path + "-shm");
    }
    const Descriptor file(::open(location.path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, kOursAlone));
    if (file.number() < 0) {
        const bool cannotWrite = errno == EROFS || (errno == EACCES && !isNew);
        failWithSystem(cannotWrite ? VXIMStoreErrorReadOnly : VXIMStoreErrorCannotOpen,
                       "The message store's file cannot be opened.", errno);
    }
    const std::string folder = std::filesystem::path(location.path).parent_path().string();
    if (::faccessat(AT_FDCWD, folder.empty() ? "." : folder.c_str(), W_OK, AT_EACCESS) != 0) {
        // SQLite makes its log in this folder.
        failWithSystem(VXIMStoreErrorReadOnly, "The message store's folder cannot be written.",
                       errno);
    }
    struct stat now {};
    const bool isOpenToOthers =
        ::fstat(file.number(), &now) == 0 && (now.st_mode & 0777) != kOursAlone;
    // SQLite gives its other files the same mode.
    if (isOpenToOthers && ::fchmod(file.number(), kOursAlone) != 0) {
        failWithSystem(VXIMStoreErrorCannotOpen,
                       "The message store's file belongs to another user of this system.", errno);
    }
}

bool isEmpty(const Location& location) {
    struct stat found {};
    return isThere(location.path) && ::stat(location.path.c_str(), &found) == 0 &&
           found.st_size == 0;
}

void finishRescue(const Location& location) {
    if (location.isInMemory() || !isThere(location.rescue())) return;
    if (isThere(location.path)) return removeFile(location.rescue());
    if (::rename(location.rescue().c_str(), location.path.c_str()) != 0) {
        failWithSystem(VXIMStoreErrorFailed,
                       "The new file with the rescued messages could not be put in place.", errno);
    }
}

void removeFile(const std::string& path) noexcept { ::unlink(path.c_str()); }

FileLock::FileLock(const std::string& path)
    : descriptor_(::open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, kOursAlone)) {
    if (descriptor_ < 0) {
        const bool cannotWrite = errno == EROFS || errno == EACCES;
        failWithSystem(cannotWrite ? VXIMStoreErrorReadOnly : VXIMStoreErrorCannotOpen,
                       "The message store's folder is missing or cannot be written.", errno);
    }
    if (::flock(descriptor_, LOCK_EX | LOCK_NB) == 0) return;
    const int number = errno;
    ::close(descriptor_);
    if (number == EWOULDBLOCK)
        fail(VXIMStoreErrorLocked, "Another program has opened the message store.");
    failWithSystem(VXIMStoreErrorFailed, "The message store could not be locked.", number);
}

FileLock::~FileLock() { ::close(descriptor_); }

std::string keepCopy(const std::string& folder, const std::string& file, const std::string& name) {
    if (::mkdir(folder.c_str(), S_IRWXU) != 0 && errno != EEXIST) {
        failWithSystem(VXIMStoreErrorFailed, "The folder for attachments cannot be used.", errno);
    }
    std::string copyName = name + std::filesystem::path(file).extension().string();
    const std::string copy = folder + "/" + copyName;
    constexpr const char* kSentence = "The attachment could not be copied.";
    try {
        const Descriptor from(::open(file.c_str(), O_RDONLY | O_CLOEXEC));
        if (from.number() < 0) failWithSystem(VXIMStoreErrorFailed, kSentence, errno);
        const Descriptor to(
            ::open(copy.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, kOursAlone));
        if (to.number() < 0) failWithSystem(VXIMStoreErrorFailed, kSentence, errno);
        std::string piece(256 * 1024, '\0');
        for (;;) {
            const ssize_t size = ::read(from.number(), piece.data(), piece.size());
            if (size < 0 && errno == EINTR) continue;
            if (size < 0) failWithSystem(VXIMStoreErrorFailed, kSentence, errno);
            if (size == 0) break;
            writeAll(to.number(), std::string_view(piece).substr(0, static_cast<std::size_t>(size)),
                     kSentence);
        }
        if (::fsync(to.number()) != 0) failWithSystem(VXIMStoreErrorFailed, kSentence, errno);
        sync(folder);
    } catch (const Failure&) {
        removeFile(copy);
        throw;
    }
    return copyName;
}

void removeOthers(const std::string& folder, const std::vector<std::string>& names) noexcept {
    try {
        std::error_code ignored;
        std::vector<std::filesystem::path> others;
        for (const auto& each : std::filesystem::directory_iterator(folder, ignored)) {
            if (std::ranges::find(names, each.path().filename().string()) == names.end())
                others.push_back(each.path());
        }
        for (const auto& each : others) std::filesystem::remove(each, ignored);
        ::rmdir(folder.c_str());
    } catch (...) {  // the next call tries again
    }
}

}  // namespace vexim::store
