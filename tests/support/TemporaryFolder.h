#pragma once

#include <cstddef>
#include <cstdlib>
#include <filesystem>
#include <iterator>
#include <optional>
#include <stdexcept>
#include <string>
#include <system_error>

namespace vexim::testing {

/// A folder for one test. It is removed with this object, with everything in it.
class TemporaryFolder {
public:
    /// `name` is the beginning of its name.
    explicit TemporaryFolder(const std::string& name = "vexim-test") {
        std::string path = std::filesystem::temp_directory_path() / (name + "-XXXXXX");
        if (::mkdtemp(path.data()) == nullptr) throw std::runtime_error("no folder " + path);
        path_ = path;
    }
    ~TemporaryFolder() {
        std::error_code ignored;
        std::filesystem::remove_all(path_, ignored);
    }
    TemporaryFolder(const TemporaryFolder&) = delete;
    TemporaryFolder& operator=(const TemporaryFolder&) = delete;

    const std::filesystem::path& path() const noexcept { return path_; }
    std::filesystem::path operator/(const std::filesystem::path& name) const {
        return path_ / name;
    }
    /// How many files and folders are in it.
    std::size_t count() const {
        return static_cast<std::size_t>(
            std::distance(std::filesystem::directory_iterator(path_), {}));
    }

private:
    std::filesystem::path path_;
};

/// While this lives, temporary files are made in `path`.
class TemporaryFilesIn {
public:
    explicit TemporaryFilesIn(const std::filesystem::path& path) {
        if (const char* const before = std::getenv("TMPDIR")) before_ = before;
        ::setenv("TMPDIR", path.c_str(), 1);
    }
    ~TemporaryFilesIn() {
        before_ ? ::setenv("TMPDIR", before_->c_str(), 1) : ::unsetenv("TMPDIR");
    }
    TemporaryFilesIn(const TemporaryFilesIn&) = delete;
    TemporaryFilesIn& operator=(const TemporaryFilesIn&) = delete;

private:
    std::optional<std::string> before_;
};

}  // namespace vexim::testing
