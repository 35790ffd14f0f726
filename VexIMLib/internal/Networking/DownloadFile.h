#pragma once

#include <memory>
#include <string>

#include "VexIMLib/Foundation/Error.h"
#include "VexIMLib/internal/Platform/Files/OutputStream.h"

namespace vexim::rest {

/// A file that appears under its name only when it is complete. Until then it has a temporary name
/// in the same directory, so that it can be renamed. Destroying this object without `conclude`
/// removes it.
class DownloadFile {
public:
    explicit DownloadFile(std::string path);
    DownloadFile(const DownloadFile&) = delete;
    DownloadFile& operator=(const DownloadFile&) = delete;
    ~DownloadFile();

    /// Checks whether the file can be made. Returns nullptr, or the reason why not: the folder is
    /// missing or not writable, the path is a directory, the disk is full. Leaves nothing behind.
    ErrorPtr check() const;
    /// Starts again with an empty temporary file, which is made when the stream is opened.
    std::shared_ptr<OutputStream> newStream();
    /// Call it when the stream is closed. After a success (nullptr) it renames the file, otherwise
    /// it removes it. Returns `error`, or why the file could not be written.
    ErrorPtr conclude(ErrorPtr error);

private:
    const std::string path_;
    const std::string temporaryPath_;
    std::shared_ptr<OutputStream> stream_;
};

}  // namespace vexim::rest
