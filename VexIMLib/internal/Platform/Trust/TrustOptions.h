#pragma once

#include <string>
#include <vector>

#include "VexIMLib/Foundation/Dictionary.h"

namespace vexim {

/// Whom to trust. Chain, validity and host name are verified in any case.
struct TrustOptions {
    std::string authorityFile;  // PEM; empty: the system's authorities
    std::string authorityPEM;   // PEM text; wins over the file
    // SHA-256 of acceptable leaf keys (SPKI, RFC 7469), 32 bytes each; empty: any
    std::vector<std::string> pins;
    // a certificate that is its own only issuer; everything else still holds
    bool acceptSelfSigned = false;

    friend bool operator==(const TrustOptions&, const TrustOptions&) = default;
};

struct TrustReading {
    TrustOptions options;
    // a sentence; empty when all could be read. It quotes nothing of what the options hold
    std::string fault;
};

/// The keys "caFile", "caPEM", "pinnedKeys" and "selfSigned" of a configuration's options;
/// docs/guide/trust.md has the rules. A "selfSigned" that is no boolean counts as false, which
/// trusts less. Everything else that is malformed is a fault.
TrustReading readTrustOptions(const Dictionary& options);

}  // namespace vexim
