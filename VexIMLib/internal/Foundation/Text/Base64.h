#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace vexim {

/// RFC 4648, the standard alphabet with padding.
std::string encodeBase64(std::string_view bytes);
/// nullopt for anything but whole, padded groups of the alphabet.
std::optional<std::string> decodeBase64(std::string_view text);

}  // namespace vexim
