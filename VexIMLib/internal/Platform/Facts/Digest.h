#pragma once

#include <string>
#include <string_view>

#include "VexIMLib/Foundation/Data.h"

namespace vexim {

/// The MD5 digest (RFC 1321) as 32 lower-case hexadecimal characters. For signatures and names, not
/// for security. Empty if the crypto library refuses MD5.
std::string md5Hex(std::string_view bytes);
inline std::string md5Hex(const Data& data) { return md5Hex(data.view()); }

}  // namespace vexim
