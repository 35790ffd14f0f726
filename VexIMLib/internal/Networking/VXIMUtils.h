#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "VexIMLib/Foundation/Data.h"

/// Digests, the request signature and directories. Class operations only; call them from any
/// thread.
class VXIMUtils {
public:
    VXIMUtils() = delete;

    /// MD5 (RFC 1321) of the bytes as 32 lower-case hexadecimal characters; the text counts as its
    /// UTF-8 bytes.
    static std::string md5FromString(std::string_view text);
    /// nullopt for no data.
    static std::optional<std::string> md5FromData(const std::optional<vexim::Data>& data);

    /// "<md5 of seconds and key>,<seconds since 1970>" for the time of this call; nullopt for no
    /// key or an empty one.
    static std::optional<std::string> signatureForClientKey(
        const std::optional<std::string>& clientKey);

    /// Makes sure that a directory stands at `path`, its parents included; whatever else stands
    /// there is removed. Failures are silent, no path does nothing.
    static void ensureDirExist(const std::optional<std::string>& path);
};
