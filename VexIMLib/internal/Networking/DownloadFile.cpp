#include "VexIMLib/internal/Networking/DownloadFile.h"

#include <cstdio>
#include <utility>

#include "VexIMLib/Foundation/Random.h"
#include "VexIMLib/internal/Platform/FileManager.h"

namespace vexim::rest {

namespace {

std::string temporaryName(const std::string& path) {
    char suffix[32];
    std::snprintf(suffix, sizeof suffix, ".%08x.part", Random::shared()->next32());
    return path + suffix;
}

}  // namespace

DownloadFile::DownloadFile(std::string path) : path_(std::move(path)), temporaryPath_(temporaryName(path_)) {}

DownloadFile::~DownloadFile() { discard(); }

std::shared_ptr<OutputStream> DownloadFile::newStream() {
    stream_ = OutputStream::toFileAtPath(temporaryPath_, false);
    return stream_;
}

ErrorPtr DownloadFile::commit() {
    auto stream = std::exchange(stream_, nullptr);
    // The last write of all may have failed without anybody asking again.
    auto error = stream ? stream->streamError() : nullptr;
    if (!error) error = FileManager::move(temporaryPath_, path_);
    if (error) FileManager::remove(temporaryPath_);
    return error;
}

void DownloadFile::discard() {
    if (!std::exchange(stream_, nullptr)) return;
    FileManager::remove(temporaryPath_);
}

}  // namespace vexim::rest
