#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "VexIMLib/Foundation/Data.h"
#include "VexIMLib/Foundation/Error.h"

namespace vexim {

/// The directory for staged attachments and downloads: $TMPDIR, or /tmp. Without a slash at the
/// end.
std::string temporaryDirectory();
/// `path` and `component` with exactly one slash between them.
std::string appendPathComponent(std::string_view path, std::string_view component);

struct FileAttributes {
    std::uint64_t size = 0;
    bool isDirectory = false;
    bool isRegular = false;
};

/// File functions. Errors are in NSCocoaErrorDomain, with the system's (NSPOSIXErrorDomain) as
/// underlying error. Functions that return an ErrorPtr return nullptr on success. Thread-safe;
/// links are followed.
namespace FileManager {

bool fileExists(const std::string& path);
bool isDirectory(const std::string& path);
/// nullopt, with `error` set if given, if they cannot be read.
std::optional<FileAttributes> attributes(const std::string& path, ErrorPtr* error = nullptr);
/// Creates a directory. With `withIntermediates` it also creates the parents, and the directory may
/// already exist.
ErrorPtr createDirectory(const std::string& path, bool withIntermediates);
/// Makes sure that `path` is a directory of this user that nobody else can enter: creates it, with
/// its parents, or removes other users' access. Refuses a link and a directory of another user, who
/// may have made it first in a shared folder.
ErrorPtr ensurePrivateDirectory(const std::string& path);
/// Removes a file, or a directory with its contents.
ErrorPtr remove(const std::string& path);
/// Moves a file within one file system and replaces `to`.
ErrorPtr move(const std::string& from, const std::string& to);
/// Reads the whole file. nullopt, with `error` set if given, if it cannot be read.
std::optional<Data> contents(const std::string& path, ErrorPtr* error = nullptr);
/// Writes a temporary file in the same directory, then renames it. So `path` is always either the
/// old file or the complete new one. Only this user can read it.
ErrorPtr writeAtomically(const Data& data, const std::string& path);

}  // namespace FileManager

/// Makes the errors of these functions and of file streams from an errno.
ErrorPtr fileReadError(int errnum);
ErrorPtr fileWriteError(int errnum);

}  // namespace vexim
