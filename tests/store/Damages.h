#pragma once

// What a disk and other programs may do to a store's file.

#include <gtest/gtest.h>
#include <sqlite3.h>
#include <sys/resource.h>

#include <csignal>
#include <fstream>
#include <iterator>
#include <string>

namespace vexim::testing {

inline std::string contentOf(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

inline void setContent(const std::string& path, const std::string& content) {
    std::ofstream(path, std::ios::binary) << content;
}

/// What another program does to the file.
class Other {
public:
    explicit Other(const std::string& path) { sqlite3_open(path.c_str(), &database_); }
    ~Other() { sqlite3_close(database_); }
    Other(const Other&) = delete;
    Other& operator=(const Other&) = delete;
    void execute(const std::string& sql) {
        char* why = nullptr;
        EXPECT_EQ(sqlite3_exec(database_, sql.c_str(), nullptr, nullptr, &why), SQLITE_OK)
            << (why ? why : "");
        sqlite3_free(why);
    }

private:
    sqlite3* database_ = nullptr;
};

/// While this lives, no file grows beyond `bytes`.
class FullDisk {
public:
    explicit FullDisk(rlim_t bytes) {
        ::getrlimit(RLIMIT_FSIZE, &before_);
        handler_ = std::signal(SIGXFSZ, SIG_IGN);
        const rlimit small{bytes, before_.rlim_max};
        ::setrlimit(RLIMIT_FSIZE, &small);
    }
    ~FullDisk() {
        ::setrlimit(RLIMIT_FSIZE, &before_);
        std::signal(SIGXFSZ, handler_);
    }
    FullDisk(const FullDisk&) = delete;
    FullDisk& operator=(const FullDisk&) = delete;

private:
    rlimit before_{};
    void (*handler_)(int) = nullptr;
};

}  // namespace vexim::testing
