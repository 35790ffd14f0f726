#include "VexIMLib/internal/Networking/DownloadFile.h"

#include <cerrno>
#include <cstdio>
#include <utility>

#include "VexIMLib/Foundation/Random.h"
#include "VexIMLib/internal/Networking/NetworkingErrors.h"
#include "VexIMLib/internal/Platform/Files/FileManager.h"

namespace vexim::rest {

namespace {

std::string temporaryName(const std::string& path) {
    char suffix[32];
    std::snprintf(suffix, sizeof suffix, ".%08x.part", Random::shared()->next32());
    return path + suffix;
}

}  // namespace

DownloadFile::DownloadFile(std::string path)
    : path_(std::move(path)),
      temporaryPath_(temporaryName(path_)) {}

DownloadFile::~DownloadFile() {
    if (stream_) FileManager::remove(temporaryPath_);
}

ErrorPtr DownloadFile::check() const {
    if (path_.empty()) return fileFailed(fileWriteError(ENOENT));
    if (FileManager::isDirectory(path_)) return fileFailed(fileWriteError(EISDIR));
    const auto probe = OutputStream::toFileAtPath(temporaryPath_, false);
    probe->open();
    const std::uint8_t byte = 0;
    probe->write(&byte, 1);  // a full disk may still have room for a name
    probe->close();
    FileManager::remove(temporaryPath_);
    return probe->streamError() ? fileFailed(probe->streamError()) : nullptr;
}

std::shared_ptr<OutputStream> DownloadFile::newStream() {
    stream_ = OutputStream::toFileAtPath(temporaryPath_, false);
    return stream_;
}

ErrorPtr DownloadFile::conclude(ErrorPtr error) {
    const auto stream = std::exchange(stream_, nullptr);
    if (error && error->is(kURLErrorDomain, URLErrorCancelled)) {
        // A cancellation is reported as such, whatever else happened.
    } else if (stream && stream->streamError()) {
        // also covers the last write, whose error nobody has checked yet
        error = fileFailed(stream->streamError());
    } else if (!error) {
        if (ErrorPtr failure = FileManager::move(temporaryPath_, path_))
            error = fileFailed(failure);
    }
    if (error && stream) FileManager::remove(temporaryPath_);
    return error;
}

}  // namespace vexim::rest
