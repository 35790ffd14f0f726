#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "VexIMLib/Foundation/Data.h"
#include "VexIMLib/Foundation/Error.h"

namespace vexim {

/// Where the library keeps staged attachments and downloads: $TMPDIR, else /tmp. Without a slash at
/// the end.
std::string temporaryDirectory();
/// `path` and `component` with exactly one slash between them.
std::string appendPathComponent(std::string_view path, std::string_view component);

struct FileAttributes {
    std::uint64_t size = 0;
    bool isDirectory = false;
    bool isRegular = false;
};

/// Files, with errors in NSCocoaErrorDomain that carry the system's own (NSPOSIXErrorDomain) as
/// underlying error. Functions that answer an ErrorPtr answer nullptr on success. Thread-safe;
/// links are followed.
namespace FileManager {

bool fileExists(const std::string& path);
bool isDirectory(const std::string& path);
/// nullopt, with `error` set when given, when they cannot be read.
std::optional<FileAttributes> attributes(const std::string& path, ErrorPtr* error = nullptr);
/// Creates it, with its parents when `withIntermediates`; a directory that is there already is fine
/// then.
ErrorPtr createDirectory(const std::string& path, bool withIntermediates);
/// Sees to it that a directory of this user's stands at `path` which nobody else can enter: makes
/// it, with its parents, or closes it to others. Refuses a link and what belongs to somebody else,
/// who may have been first in a folder that all share.
ErrorPtr ensurePrivateDirectory(const std::string& path);
/// Removes a file, or a directory with what it holds.
ErrorPtr remove(const std::string& path);
/// Moves within one file system; what stands at `to` is replaced.
ErrorPtr move(const std::string& from, const std::string& to);
/// The whole file; nullopt, with `error` set when given, when it cannot be read.
std::optional<Data> contents(const std::string& path, ErrorPtr* error = nullptr);
/// Writes under a temporary name in the same directory, then renames: at `path` stands the old file
/// or the whole new one, which only this user can read.
ErrorPtr writeAtomically(const Data& data, const std::string& path);

}  // namespace FileManager

/// The errors of this file's functions and of file streams, from an errno.
ErrorPtr fileReadError(int errnum);
ErrorPtr fileWriteError(int errnum);

}  // namespace vexim
