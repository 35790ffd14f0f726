#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "VexIMLib/Foundation/Data.h"

/// Digests, the request signature, and directories. Static functions only; call them from any
/// thread.
class VXIMUtils {
public:
    VXIMUtils() = delete;

    /// MD5 (RFC 1321) of the bytes as 32 lower-case hexadecimal characters. For a text, of its
    /// UTF-8 bytes.
    static std::string md5FromString(std::string_view text);
    /// nullopt for no data.
    static std::optional<std::string> md5FromData(const std::optional<vexim::Data>& data);

    /// "<md5 of seconds and key>,<seconds since 1970>" for the time of this call; nullopt for no
    /// key or an empty one.
    static std::optional<std::string> signatureForClientKey(
        const std::optional<std::string>& clientKey);

    /// Where the bytes of attachments wait for their upload. It need not exist.
    static std::string stagingDirectory();
    /// Makes sure that `path` is a directory, and makes its parents. Anything else at `path` is
    /// removed. Failures are silent; nullopt does nothing.
    static void ensureDirExist(const std::optional<std::string>& path);
};
