#pragma once

#include <memory>
#include <string>

#include "VexIMLib/internal/Platform/Trust/TrustOptions.h"

// OpenSSL's, which only sources include.
struct x509_store_st;

namespace vexim {

struct FreeStore {
    void operator()(x509_store_st* store) const;
};
using AuthorityStore = std::unique_ptr<x509_store_st, FreeStore>;

struct AuthorityReading {
    AuthorityStore store;
    std::string fault;  // a sentence, when there is no store. It names no path
};

/// The certificates that `options` trust, or the system's. All of them or none: a text that is cut
/// off, or that holds anything but certificates and remarks between them, is a fault. Reads files,
/// so it takes milliseconds.
AuthorityReading readAuthorities(const TrustOptions& options);

/// Changes when what `readAuthorities` would read changes. Costs a system call where a file is
/// named, else nothing.
std::string authoritiesVersion(const TrustOptions& options);

}  // namespace vexim
