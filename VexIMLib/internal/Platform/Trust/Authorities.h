#pragma once

#include <memory>
#include <string>

#include "VexIMLib/internal/Platform/Trust/TrustOptions.h"

// From OpenSSL, whose headers only sources include.
struct x509_store_st;

namespace vexim {

struct FreeStore {
    void operator()(x509_store_st* store) const;
};
using AuthorityStore = std::unique_ptr<x509_store_st, FreeStore>;

struct AuthorityReading {
    AuthorityStore store;
    std::string fault;  // a sentence, if there is no store. It does not name the path
};

/// Reads the certificates that `options` name, or the system's: all of them or none. A text that is
/// cut off, or that has anything but certificates and comments, is an error. Reads files, so it
/// takes milliseconds.
AuthorityReading readAuthorities(const TrustOptions& options);

/// Changes if the files of `readAuthorities` change. Costs one system call if there is a file.
std::string authoritiesVersion(const TrustOptions& options);

}  // namespace vexim
