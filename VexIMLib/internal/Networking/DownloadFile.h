#pragma once

#include <memory>
#include <string>

#include "VexIMLib/Foundation/Error.h"
#include "VexIMLib/internal/Platform/OutputStream.h"

namespace vexim::rest {

/// A file that appears under its name only when it is whole. Until then it has a name of its own beside it, so that the renaming
/// stays within one file system; going without `commit` removes it.
class DownloadFile {
public:
    explicit DownloadFile(std::string path);
    DownloadFile(const DownloadFile&) = delete;
    DownloadFile& operator=(const DownloadFile&) = delete;
    ~DownloadFile();

    /// Begins anew: a stream to the empty temporary file, which appears when the stream is opened.
    std::shared_ptr<OutputStream> newStream();
    /// Gives the file its name, once the stream was closed. An error when something could not be written.
    ErrorPtr commit();
    void discard();

private:
    const std::string path_;
    const std::string temporaryPath_;
    std::shared_ptr<OutputStream> stream_;
};

}  // namespace vexim::rest
