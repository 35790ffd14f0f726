#include "VexIMLib/internal/Platform/Files/FileManager.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <system_error>

#include "VexIMLib/internal/Platform/Files/FileDescriptor.h"

namespace vexim {
namespace {

// NSCocoaErrorDomain's published codes for files.
enum CocoaFileError : std::int64_t {
    FileNoSuchFile = 4,
    FileReadUnknown = 256,
    FileReadNoPermission = 257,
    FileReadInvalidFileName = 258,
    FileReadNoSuchFile = 260,
    FileWriteUnknown = 512,
    FileWriteNoPermission = 513,
    FileWriteInvalidFileName = 514,
    FileWriteFileExists = 516,
    FileWriteOutOfSpace = 640,
    FileWriteVolumeReadOnly = 642,
};

ErrorPtr fileError(std::int64_t code, int errnum, std::string_view what) {
    const std::string reason = std::generic_category().message(errnum);
    Dictionary info;
    info.set(kLocalizedDescriptionKey,
             "The file couldn't be " + std::string(what) + ": " + reason + ".");
    info.set(kUnderlyingErrorKey, Error::withDescription(kPOSIXErrorDomain, errnum, reason));
    return Error::make(kCocoaErrorDomain, code, std::move(info));
}

ErrorPtr failIf(const std::error_code& failure) {
    return failure ? fileWriteError(failure.value()) : nullptr;
}

std::nullopt_t refuse(ErrorPtr* error) {
    const int errnum = errno;
    if (error) *error = fileReadError(errnum);
    return std::nullopt;
}

}  // namespace

ErrorPtr fileReadError(int errnum) {
    const auto code = [errnum]() -> std::int64_t {
        switch (errnum) {
            case ENOENT:
            case ENOTDIR: return FileReadNoSuchFile;
            case EACCES:
            case EPERM: return FileReadNoPermission;
            case ENAMETOOLONG: return FileReadInvalidFileName;
            default: return FileReadUnknown;
        }
    }();
    return fileError(code, errnum, "opened");
}

ErrorPtr fileWriteError(int errnum) {
    const auto code = [errnum]() -> std::int64_t {
        switch (errnum) {
            case ENOENT:
            case ENOTDIR: return FileNoSuchFile;
            case EACCES:
            case EPERM: return FileWriteNoPermission;
            case ENAMETOOLONG: return FileWriteInvalidFileName;
            case EEXIST: return FileWriteFileExists;
            case ENOSPC:
            case EDQUOT: return FileWriteOutOfSpace;
            case EROFS: return FileWriteVolumeReadOnly;
            default: return FileWriteUnknown;
        }
    }();
    return fileError(code, errnum, "saved");
}

std::string temporaryDirectory() {
    const char* const named = std::getenv("TMPDIR");
    std::string path = named && *named ? named : "/tmp";
    while (path.size() > 1 && path.back() == '/') path.pop_back();
    return path;
}

std::string appendPathComponent(std::string_view path, std::string_view component) {
    while (path.ends_with('/')) path.remove_suffix(1);
    while (component.starts_with('/')) component.remove_prefix(1);
    std::string joined(path);
    return joined.append("/").append(component);
}

namespace FileManager {

bool fileExists(const std::string& path) {
    struct stat status {};
    return ::stat(path.c_str(), &status) == 0;
}

bool isDirectory(const std::string& path) {
    const auto found = attributes(path);
    return found && found->isDirectory;
}

std::optional<FileAttributes> attributes(const std::string& path, ErrorPtr* error) {
    struct stat status {};
    if (::stat(path.c_str(), &status) != 0) return refuse(error);
    return FileAttributes{static_cast<std::uint64_t>(status.st_size), S_ISDIR(status.st_mode),
                          S_ISREG(status.st_mode)};
}

ErrorPtr createDirectory(const std::string& path, bool withIntermediates) {
    std::error_code failure;
    if (withIntermediates) {
        std::filesystem::create_directories(path, failure);
        if (!failure && !isDirectory(path)) return fileWriteError(EEXIST);
    } else if (!std::filesystem::create_directory(path, failure) && !failure) {
        return fileWriteError(EEXIST);
    }
    return failIf(failure);
}

ErrorPtr ensurePrivateDirectory(const std::string& path) {
    constexpr mode_t kOthers = S_IRWXG | S_IRWXO;
    if (const auto parent = std::filesystem::path(path).parent_path(); !isDirectory(parent)) {
        if (ErrorPtr error = createDirectory(parent, true)) return error;
    }
    if (::mkdir(path.c_str(), S_IRWXU) != 0 && errno != EEXIST) return fileWriteError(errno);
    struct stat status {};
    if (::lstat(path.c_str(), &status) != 0) return fileWriteError(errno);
    if (!S_ISDIR(status.st_mode)) return fileWriteError(EEXIST);
    if (status.st_uid != ::geteuid()) return fileWriteError(EPERM);
    if ((status.st_mode & kOthers) != 0 && ::chmod(path.c_str(), S_IRWXU) != 0)
        return fileWriteError(errno);
    return nullptr;
}

ErrorPtr remove(const std::string& path) {
    std::error_code failure;
    if (std::filesystem::remove_all(path, failure) == 0 && !failure) return fileWriteError(ENOENT);
    return failIf(failure);
}

ErrorPtr move(const std::string& from, const std::string& to) {
    return ::rename(from.c_str(), to.c_str()) == 0 ? nullptr : fileWriteError(errno);
}

std::optional<Data> contents(const std::string& path, ErrorPtr* error) {
    const FileDescriptor file(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
    if (!file) return refuse(error);
    std::string bytes;
    char buffer[65536];
    for (;;) {
        const ssize_t count = file.read(buffer, sizeof buffer);
        if (count < 0) return refuse(error);
        if (count == 0) return Data::fromString(std::move(bytes));
        bytes.append(buffer, static_cast<std::size_t>(count));
    }
}

ErrorPtr writeAtomically(const Data& data, const std::string& path) {
    std::string temporary = path + ".XXXXXX";
    FileDescriptor file(::mkostemp(temporary.data(), O_CLOEXEC));
    if (!file) return fileWriteError(errno);
    std::string_view rest = data.view();
    ssize_t count = 0;
    while (!rest.empty() && (count = file.write(rest.data(), rest.size())) >= 0)
        rest.remove_prefix(static_cast<std::size_t>(count));
    if (rest.empty() && file.close() && ::rename(temporary.c_str(), path.c_str()) == 0)
        return nullptr;
    const int errnum = errno;
    ::unlink(temporary.c_str());
    return fileWriteError(errnum);
}

}  // namespace FileManager
}  // namespace vexim
