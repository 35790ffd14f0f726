#pragma once

#include <string>
#include <vector>

#include "VexIMLib/Foundation/Dictionary.h"

namespace vexim {

/// Which servers to trust. Chain, validity and host name are checked in any case.
struct TrustOptions {
    std::string authorityFile;  // PEM; empty: the system's authorities
    std::string authorityPEM;   // PEM text; takes precedence over the file
    // SHA-256 of acceptable leaf keys (SPKI, RFC 7469), 32 bytes each; empty: any
    std::vector<std::string> pins;
    // accept a self-signed certificate; everything else is still checked
    bool acceptSelfSigned = false;

    friend bool operator==(const TrustOptions&, const TrustOptions&) = default;
};

struct TrustReading {
    TrustOptions options;
    // a sentence; empty if all could be read. It quotes nothing from the options
    std::string fault;
};

/// The keys "caFile", "caPEM", "pinnedKeys" and "selfSigned" of a configuration's options;
/// docs/guide/trust.md has the rules. A "selfSigned" that is not a boolean counts as false, which
/// trusts less. Any other malformed option is an error.
TrustReading readTrustOptions(const Dictionary& options);

}  // namespace vexim
