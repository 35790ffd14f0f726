#pragma once

#include <memory>
#include <string>

#include "VexIMLib/Foundation/Error.h"
#include "VexIMLib/internal/Platform/Files/OutputStream.h"

namespace vexim::rest {

/// A file that appears under its name only when it is whole. Until then it has a name of its own
/// beside it, so that the renaming stays within one file system; going without `conclude` removes
/// it.
class DownloadFile {
public:
    explicit DownloadFile(std::string path);
    DownloadFile(const DownloadFile&) = delete;
    DownloadFile& operator=(const DownloadFile&) = delete;
    ~DownloadFile();

    /// Why no file can be made there: the folder is missing or not writable, a directory stands
    /// there, the disk is full. nullptr when one can; it leaves nothing behind.
    ErrorPtr check() const;
    /// Begins anew: a stream to the empty temporary file, which appears when the stream is opened.
    std::shared_ptr<OutputStream> newStream();
    /// The end, once the stream was closed: gives the file its name after a success (nullptr), or
    /// removes it. Answers `error`, or why the file could not be written.
    ErrorPtr conclude(ErrorPtr error);

private:
    const std::string path_;
    const std::string temporaryPath_;
    std::shared_ptr<OutputStream> stream_;
};

}  // namespace vexim::rest
